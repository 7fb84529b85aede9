// The critical section, and the guard that holds it for a scope.
#pragma once

#include <mutex>

#include "harrow/locks/LocksHeld.h"
#include "harrow/locks/ThreadAnnotations.h"

namespace Harrowlib201 {

// One thread at a time. Not recursive.
class S_CAPABILITY("CS_Wrapper") CS_Wrapper {
public:
    CS_Wrapper() = default;
    CS_Wrapper(const CS_Wrapper&) = delete;
    CS_Wrapper& operator=(const CS_Wrapper&) = delete;

    LocksHeld& Lock() S_ACQUIRE() {
        m_mutex.lock();
        return NoteLocked();
    }
    // With what Lock has returned, on the same thread.
    void Unlock(LocksHeld& io_held) S_RELEASE() {
        m_mutex.unlock();
        NoteUnlocked(io_held);
    }

private:
    std::mutex m_mutex;
};

class S_SCOPED_CAPABILITY CS_Locker {
public:
    explicit CS_Locker(CS_Wrapper& i_section) S_ACQUIRE(i_section) : m_section(i_section), m_held(m_section.Lock()) {}
    ~CS_Locker() S_RELEASE() { m_section.Unlock(m_held); }
    CS_Locker(const CS_Locker&) = delete;
    CS_Locker& operator=(const CS_Locker&) = delete;

private:
    CS_Wrapper& m_section;
    LocksHeld& m_held;
};

}  // namespace Harrowlib201
