// How many of this library's locks the calling thread holds, and what is put off until it holds none.
#pragma once

#include <utility>

namespace Harrowlib201 {

// Code that is not ours to bound, a host's log sink above all, must not run while others wait for a lock, nor be able
// to wait for it itself. Plain data, because a thread_local with a destructor would keep the library loaded.
struct LocksHeld {
    unsigned m_nLocks;
    void (*m_pfnPutOff)() noexcept;  // what is to be done then; null: nothing
};
inline constinit thread_local LocksHeld t_locksHeld{};

inline void NoteLocked() noexcept {
    ++t_locksHeld.m_nLocks;
}

inline void NoteUnlocked() noexcept {
    LocksHeld& held = t_locksHeld;
    if (--held.m_nLocks == 0 && held.m_pfnPutOff != nullptr) {
        std::exchange(held.m_pfnPutOff, nullptr)();
    }
}

}  // namespace Harrowlib201
