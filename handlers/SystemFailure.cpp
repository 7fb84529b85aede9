#include "handlers/SystemFailure.h"

#include "errors/SSOException.h"
#include "morwen/morwenplugin.h"

namespace morwen {

void ThrowSystemFailure(DWORD i_nCode, uint32_t i_nMessageId) {
    if (i_nCode == static_cast<DWORD>(SEC_E_INSUFFICIENT_MEMORY) || i_nCode == ERROR_NOT_ENOUGH_MEMORY) {
        throw SSOException(SSOException::OutOfMemory());
    }
    throw SSOException(SSO_ERROR, i_nMessageId);
}

}  // namespace morwen
