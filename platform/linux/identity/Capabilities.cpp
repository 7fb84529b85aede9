#include "platform/linux/identity/Capabilities.h"

#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>

namespace morwen {

namespace {

using CapabilityData = std::array<__user_cap_data_struct, 2>;

int ErrorOf(long i_nResult) noexcept {
    return i_nResult < 0 ? errno : 0;
}

uint64_t Joined(uint32_t i_nLow, uint32_t i_nHigh) noexcept {
    return i_nLow | uint64_t{i_nHigh} << 32U;
}

// Only those that are permitted and inheritable can be ambient: mostly there are none to ask for.
int ReadAmbient(uint64_t i_nPossible, uint64_t& o_nAmbient) noexcept {
    for (; i_nPossible != 0; i_nPossible &= i_nPossible - 1) {
        const int nCapability = std::countr_zero(i_nPossible);
        const long nSet = syscall(SYS_prctl, PR_CAP_AMBIENT, PR_CAP_AMBIENT_IS_SET, nCapability, 0, 0);
        if (nSet < 0) {
            return errno;
        }
        o_nAmbient |= static_cast<uint64_t>(nSet != 0) << static_cast<unsigned>(nCapability);
    }
    return 0;
}

}  // namespace

int Capabilities::Read(Capabilities& o_capabilities) noexcept {
    o_capabilities = {};
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    CapabilityData data{};
    if (const int nError = ErrorOf(syscall(SYS_capget, &header, data.data())); nError != 0) {
        return nError;
    }
    o_capabilities.m_nPermitted = Joined(data[0].permitted, data[1].permitted);
    o_capabilities.m_nEffective = Joined(data[0].effective, data[1].effective);
    o_capabilities.m_nInheritable = Joined(data[0].inheritable, data[1].inheritable);
    return ReadAmbient(o_capabilities.m_nPermitted & o_capabilities.m_nInheritable, o_capabilities.m_nAmbient);
}

bool Capabilities::CanComeBack() const noexcept {
    // Nothing becomes inheritable again that is not in the bounding set.
    for (uint64_t nLeft = m_nInheritable & m_nPermitted; nLeft != 0; nLeft &= nLeft - 1) {
        if (syscall(SYS_prctl, PR_CAPBSET_READ, std::countr_zero(nLeft), 0, 0, 0) != 1) {
            return false;
        }
    }
    if (m_nAmbient == 0) {
        return true;
    }
    const long nBits = syscall(SYS_prctl, PR_GET_SECUREBITS, 0, 0, 0, 0);
    return nBits >= 0 && (static_cast<unsigned long>(nBits) & SECBIT_NO_CAP_AMBIENT_RAISE) == 0;
}

int Capabilities::Set() const noexcept {
    Capabilities now;
    if (const int nError = Read(now); nError != 0) {
        return nError;
    }
    if (now.m_nEffective != m_nEffective || now.m_nInheritable != m_nInheritable) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const auto part = [&](unsigned i_nShift) {
            return __user_cap_data_struct{static_cast<uint32_t>(m_nEffective >> i_nShift),
                                          static_cast<uint32_t>(now.m_nPermitted >> i_nShift),
                                          static_cast<uint32_t>(m_nInheritable >> i_nShift)};
        };
        CapabilityData data{part(0), part(32)};
        // Ambient ones that are inheritable no more are gone with it.
        if (const int nError = ErrorOf(syscall(SYS_capset, &header, data.data())); nError != 0) {
            return nError;
        }
    }
    for (uint64_t nLeft = m_nAmbient & ~now.m_nAmbient; nLeft != 0; nLeft &= nLeft - 1) {
        const int nCapability = std::countr_zero(nLeft);
        const int nError = ErrorOf(syscall(SYS_prctl, PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, nCapability, 0, 0));
        if (nError != 0) {
            return nError;
        }
    }
    return 0;
}

}  // namespace morwen
