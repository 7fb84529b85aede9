// The reader/writer lock, and the guards that hold it for a scope.
#pragma once

#include <shared_mutex>

#include "harrow/locks/ThreadAnnotations.h"

namespace Harrowlib201 {

// Many readers or one writer. Not recursive: a thread that holds it must not take it again.
class S_CAPABILITY("CRWLock") CRWLock {
public:
    CRWLock() = default;
    CRWLock(const CRWLock&) = delete;
    CRWLock& operator=(const CRWLock&) = delete;

    void LockRead() S_ACQUIRE_SHARED() { m_mutex.lock_shared(); }
    void UnlockRead() S_RELEASE_SHARED() { m_mutex.unlock_shared(); }
    void LockWrite() S_ACQUIRE() { m_mutex.lock(); }
    void UnlockWrite() S_RELEASE() { m_mutex.unlock(); }

private:
    std::shared_mutex m_mutex;
};

class S_SCOPED_CAPABILITY CSmartReadLocker {
public:
    explicit CSmartReadLocker(CRWLock& i_lock) S_ACQUIRE_SHARED(i_lock) : m_lock(i_lock) { m_lock.LockRead(); }
    ~CSmartReadLocker() S_RELEASE_GENERIC() { m_lock.UnlockRead(); }
    CSmartReadLocker(const CSmartReadLocker&) = delete;
    CSmartReadLocker& operator=(const CSmartReadLocker&) = delete;

private:
    CRWLock& m_lock;
};

class S_SCOPED_CAPABILITY CSmartWriteLocker {
public:
    explicit CSmartWriteLocker(CRWLock& i_lock) S_ACQUIRE(i_lock) : m_lock(i_lock) { m_lock.LockWrite(); }
    ~CSmartWriteLocker() S_RELEASE() { m_lock.UnlockWrite(); }
    CSmartWriteLocker(const CSmartWriteLocker&) = delete;
    CSmartWriteLocker& operator=(const CSmartWriteLocker&) = delete;

private:
    CRWLock& m_lock;
};

}  // namespace Harrowlib201
