#include "platform/Platform.h"

namespace morwen {

PlatformCalls& Platform::Current() {
    static PlatformCalls s_calls = NativePlatformCalls();
    return s_calls;
}

SspiCalls& Platform::Sspi() {
    return *Current().m_pSspi;
}

TokenCalls& Platform::Tokens() {
    return *Current().m_pTokens;
}

KernelCalls& Platform::Kernel() {
    return *Current().m_pKernel;
}

void Platform::Install(const PlatformCalls& i_calls) {
    Current() = i_calls.m_pSspi != nullptr ? i_calls : NativePlatformCalls();
}

}  // namespace morwen
