// What a failed call of the operating system becomes.
#pragma once

#include <cstdint>

#include "errors/SSOException.h"
#include "morwen/morwenplugin.h"
#include "platform/OsTypes.h"

namespace morwen {

// Throws SSOException for the status of a call, or for the last error after it: the out-of-memory exception when the
// system says that memory is short, else code SSO_ERROR with the message given.
[[noreturn]] inline void ThrowSystemFailure(DWORD i_nCode, uint32_t i_nMessageId) {
    if (i_nCode == static_cast<DWORD>(SEC_E_INSUFFICIENT_MEMORY) || i_nCode == ERROR_NOT_ENOUGH_MEMORY) {
        throw SSOException(SSOException::OutOfMemory());
    }
    throw SSOException(SSO_ERROR, i_nMessageId);
}
[[noreturn]] inline void ThrowSystemFailure(SECURITY_STATUS i_nStatus, uint32_t i_nMessageId) {
    ThrowSystemFailure(static_cast<DWORD>(i_nStatus), i_nMessageId);
}

}  // namespace morwen
