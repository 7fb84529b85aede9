// The calls on this system, for everything above.
#include "harrow/lifetime/NeverDestroyed.h"
#include "platform/Platform.h"
#include "platform/linux/seam/LinuxKernel.h"
#include "platform/linux/seam/LinuxSspi.h"
#include "platform/linux/seam/LinuxTokens.h"

namespace morwen {

PlatformCalls NativePlatformCalls() {
    static Harrowlib201::NeverDestroyed<LinuxTokens> s_tokens;
    static Harrowlib201::NeverDestroyed<LinuxKernel> s_kernel;
    return {&TheLinuxSspi(), &*s_tokens, &*s_kernel};
}

}  // namespace morwen
