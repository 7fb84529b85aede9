// One step of a login: the token that comes in, and the token and the key that go out.
#pragma once

#include "harrow/text/SWCharString.h"
#include "morwen/morwenplugin.h"

namespace morwen {

struct LoginStep {
    const void* m_pvToken = nullptr;  // the peer's; null when it has sent none
    SSOLength m_nTokenLength = 0;
    Harrowlib201::SWCharString m_ssSessionKey;  // of the step before; empty at the first

    // The host's own, which hold null and 0: a block that goes back through FreeExternalBuffer. As they were when the
    // step fails.
    void** m_ppvBuffer = nullptr;
    SSOLength* m_pnBufferLength = nullptr;
    Harrowlib201::SWCharString m_ssKey;  // for the step after, or for the context
};

}  // namespace morwen
