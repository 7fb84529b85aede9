// Whether a thread with a token acts as its user, or is only told who that is.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// A client decides itself, on some ways of calling a service, that this may identify it and no more, and the system
// lowers what a service without the right to impersonate asks for. Such a token counts as nobody's: what a thread asks
// for with it is refused, or is done by the service. False too when nobody can tell. The token is an impersonation's.
bool IsOfActingLevel(HANDLE i_hToken) noexcept;

// The same of the token that the calling thread has.
bool IsThreadActing() noexcept;

}  // namespace morwen
