// What a status or a system error means, for traces.
#pragma once

#include "harrow/text/SWCharString.h"
#include "platform/OsTypes.h"

namespace morwen {

using Harrowlib201::SWCharString;

// "Error ", the status in decimal, ": " and the system's text, or "???" when it has none; empty for success. To be
// called on the thread that received the status. Throws std::bad_alloc.
SWCharString GetErrorText(SECURITY_STATUS i_nStatus);

}  // namespace morwen
