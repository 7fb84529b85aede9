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

    void Lock() S_ACQUIRE() {
        m_mutex.lock();
        NoteLocked();
    }
    void Unlock() S_RELEASE() {
        m_mutex.unlock();
        NoteUnlocked();
    }

private:
    std::mutex m_mutex;
};

class S_SCOPED_CAPABILITY CS_Locker {
public:
    explicit CS_Locker(CS_Wrapper& i_section) S_ACQUIRE(i_section) : m_section(i_section) { m_section.Lock(); }
    ~CS_Locker() S_RELEASE() { m_section.Unlock(); }
    CS_Locker(const CS_Locker&) = delete;
    CS_Locker& operator=(const CS_Locker&) = delete;

private:
    CS_Wrapper& m_section;
};

}  // namespace Harrowlib201
