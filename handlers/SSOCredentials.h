// What a handler needs of the user or the service to take part in a handshake.
#pragma once

#include "harrow/lifetime/CRefCount.h"

namespace morwen {

class SSOCredentials : public Harrowlib201::CRefCount {};

using SSOCredentialsPtr = Harrowlib201::CSmartRefCountPtr<SSOCredentials>;

}  // namespace morwen
