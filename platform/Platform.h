// The one place through which everything above reaches the operating system.
#pragma once

#include "platform/KernelCalls.h"
#include "platform/SspiCalls.h"
#include "platform/TokenCalls.h"

namespace morwen {

// Three sets of calls that belong together: a handle that one gives is good for the others.
struct PlatformCalls {
    SspiCalls* m_pSspi = nullptr;
    TokenCalls* m_pTokens = nullptr;
    KernelCalls* m_pKernel = nullptr;
};

class Platform {
public:
    static SspiCalls& Sspi();
    static TokenCalls& Tokens();
    static KernelCalls& Kernel();

    // Puts other calls in place of the system's, and back again when given none. Not to be called while another thread
    // uses the platform; what is given must outlive its use.
    static void Install(const PlatformCalls& i_calls);

private:
    static PlatformCalls& Current();
};

// Each platform's folder defines it: the calls on the system that this was built for, valid until the program ends.
PlatformCalls NativePlatformCalls();

}  // namespace morwen
