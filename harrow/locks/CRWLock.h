// The reader/writer lock, and the guards that hold it for a scope.
#pragma once

#include <atomic>
#include <mutex>
#include <shared_mutex>

#include "harrow/locks/LocksHeld.h"
#include "harrow/locks/ThreadAnnotations.h"

namespace Harrowlib201 {

// Many readers or one writer. A writer waits for those who hold it and for nobody who comes later: readers without a
// pause between them would else keep it waiting forever. Not recursive, not even for reading: a thread that holds it
// must not take it again.
class S_CAPABILITY("CRWLock") CRWLock {
public:
    CRWLock() = default;
    CRWLock(const CRWLock&) = delete;
    CRWLock& operator=(const CRWLock&) = delete;

    LocksHeld& LockRead() S_ACQUIRE_SHARED() {
        if (m_nWaitingWriters.load(std::memory_order_relaxed) != 0) {
            const std::lock_guard turn(m_turn);  // behind the writer that has it
        }
        m_mutex.lock_shared();
        return NoteLocked();
    }
    // With what LockRead or LockWrite has returned, on the same thread.
    void UnlockRead(LocksHeld& io_held) S_RELEASE_SHARED() {
        m_mutex.unlock_shared();
        NoteUnlocked(io_held);
    }
    LocksHeld& LockWrite() S_ACQUIRE() {
        if (m_nWaitingWriters.load(std::memory_order_relaxed) == 0 && m_mutex.try_lock()) {
            return NoteLocked();  // nobody was there
        }
        m_nWaitingWriters.fetch_add(1, std::memory_order_relaxed);
        {
            const std::lock_guard turn(m_turn);
            m_mutex.lock();
        }
        m_nWaitingWriters.fetch_sub(1, std::memory_order_relaxed);
        return NoteLocked();
    }
    void UnlockWrite(LocksHeld& io_held) S_RELEASE() {
        m_mutex.unlock();
        NoteUnlocked(io_held);
    }

private:
    std::shared_mutex m_mutex;
    std::mutex m_turn;
    std::atomic<unsigned> m_nWaitingWriters{0};
};

class S_SCOPED_CAPABILITY CSmartReadLocker {
public:
    explicit CSmartReadLocker(CRWLock& i_lock) S_ACQUIRE_SHARED(i_lock) : m_lock(i_lock), m_held(m_lock.LockRead()) {}
    ~CSmartReadLocker() S_RELEASE_GENERIC() { m_lock.UnlockRead(m_held); }
    CSmartReadLocker(const CSmartReadLocker&) = delete;
    CSmartReadLocker& operator=(const CSmartReadLocker&) = delete;

private:
    CRWLock& m_lock;
    LocksHeld& m_held;
};

class S_SCOPED_CAPABILITY CSmartWriteLocker {
public:
    explicit CSmartWriteLocker(CRWLock& i_lock) S_ACQUIRE(i_lock) : m_lock(i_lock), m_held(m_lock.LockWrite()) {}
    ~CSmartWriteLocker() S_RELEASE() { m_lock.UnlockWrite(m_held); }
    CSmartWriteLocker(const CSmartWriteLocker&) = delete;
    CSmartWriteLocker& operator=(const CSmartWriteLocker&) = delete;

private:
    CRWLock& m_lock;
    LocksHeld& m_held;
};

}  // namespace Harrowlib201
