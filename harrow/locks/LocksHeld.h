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

// What it returns is for the NoteUnlocked of the same thread: finding it costs a call.
inline LocksHeld& NoteLocked() noexcept {
    LocksHeld& held = t_locksHeld;
    ++held.m_nLocks;
    return held;
}

inline void NoteUnlocked(LocksHeld& io_held) noexcept {
    if (--io_held.m_nLocks == 0 && io_held.m_pfnPutOff != nullptr) {
        std::exchange(io_held.m_pfnPutOff, nullptr)();
    }
}

}  // namespace Harrowlib201
