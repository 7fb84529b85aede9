// The capabilities of the calling thread.
#pragma once

#include <cstdint>

namespace morwen {

// A bit each, by the kernel's numbers.
struct Capabilities {
    uint64_t m_nPermitted = 0;
    uint64_t m_nEffective = 0;
    uint64_t m_nInheritable = 0;
    uint64_t m_nAmbient = 0;

    // The permitted ones stay as they are whatever the thread does here, and have no part in it.
    friend bool operator==(const Capabilities& i_left, const Capabilities& i_right) noexcept {
        return i_left.m_nEffective == i_right.m_nEffective && i_left.m_nInheritable == i_right.m_nInheritable &&
               i_left.m_nAmbient == i_right.m_nAmbient;
    }

    // Those of the calling thread. 0, or an errno.
    static int Read(Capabilities& o_capabilities) noexcept;

    // What a thread that has these keeps of them while it acts as somebody else: the permitted ones, which are its way
    // back, and nothing that has an effect, or that a program would have which it starts. Inheritable ones that are not
    // permitted stay, because the thread could not take them back.
    Capabilities WhileActing() const noexcept { return {m_nPermitted, 0, m_nInheritable & ~m_nPermitted, 0}; }

    // Whether the thread could raise the inheritable and the ambient ones again, once they are gone.
    bool CanComeBack() const noexcept;

    // The calling thread gets the effective, the inheritable and the ambient ones. 0, or an errno; what it has then
    // must be read back.
    int Set() const noexcept;
};

}  // namespace morwen
