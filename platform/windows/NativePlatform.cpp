// The calls on this system, for everything above.
#include "harrow/lifetime/NeverDestroyed.h"
#include "platform/Platform.h"
#include "platform/windows/WindowsKernel.h"
#include "platform/windows/WindowsSspi.h"
#include "platform/windows/WindowsTokens.h"

namespace morwen {

PlatformCalls NativePlatformCalls() {
    static Harrowlib201::NeverDestroyed<WindowsSspi> s_sspi;
    static Harrowlib201::NeverDestroyed<WindowsTokens> s_tokens;
    static Harrowlib201::NeverDestroyed<WindowsKernel> s_kernel;
    return {&*s_sspi, &*s_tokens, &*s_kernel};
}

}  // namespace morwen
