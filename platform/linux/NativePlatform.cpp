// The calls on this system, for everything above.
#include "platform/NeverDestroyed.h"
#include "platform/Platform.h"
#include "platform/linux/LinuxKernel.h"
#include "platform/linux/LinuxSspi.h"
#include "platform/linux/LinuxTokens.h"

namespace morwen {

PlatformCalls NativePlatformCalls() {
    static NeverDestroyed<LinuxTokens> s_tokens;
    static NeverDestroyed<LinuxKernel> s_kernel;
    return {&TheLinuxSspi(), &*s_tokens, &*s_kernel};
}

}  // namespace morwen
