// A thread of the thread library.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "harrow/threads/JTC.h"

namespace Harrowlib201 {

// Runs run() once, after start(). The last reference must not go on the thread itself; it waits until run() has
// returned, so that the library is not unloaded under its own thread.
class JTCThread : public CRefCount {
public:
    // Throws JTCUnknownThreadException on a thread that the library does not know.
    JTCThread();

    // Throws JTCSystemCallException when the system gives no thread or the thread was started before, std::bad_alloc
    // when memory is short; it is then not alive.
    void start();
    // Started, and run() has not returned yet.
    bool isAlive() const;
    // Waits until run() has returned, for so many milliseconds at most. Throws JTCInterruptedException when interrupt()
    // was called for the thread that waits.
    void join(long i_nMilliseconds);
    // Makes the next join by this thread throw.
    void interrupt() noexcept;
    // Whether the calling thread is one that the library has started.
    static bool isOwn() noexcept;

protected:
    ~JTCThread() override;
    virtual void run() = 0;

private:
    void Main() noexcept;

    mutable std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_bAlive = false;
    std::atomic<bool> m_bInterrupted{false};
    std::thread m_thread;
};

}  // namespace Harrowlib201
