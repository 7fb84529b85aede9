#include "errors/SSOException.h"

#include "morwen/morwenplugin.h"

namespace morwen {

namespace {
const SSOException s_outOfMemory(SSO_OUT_OF_MEMORY, kMsgOutOfMemory);
}

const SSOException& SSOException::OutOfMemory() noexcept {
    return s_outOfMemory;
}

}  // namespace morwen
