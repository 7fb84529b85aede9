#include "harrow/threads/JTCThread.h"

#include <chrono>
#include <system_error>

namespace Harrowlib201 {

namespace {
thread_local JTCThread* t_pCurrent = nullptr;  // null on a thread that the library did not start
}

JTCThread::JTCThread() {
    if (!JTCAdoptCurrentThread::isKnown()) {
        throw JTCUnknownThreadException();
    }
}

JTCThread::~JTCThread() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void JTCThread::start() {
    const std::lock_guard lock(m_mutex);  // the thread cannot end before it is marked alive
    if (m_thread.joinable()) {
        throw JTCSystemCallException("the thread was started before");
    }
    try {
        m_thread = std::thread(&JTCThread::Main, this);
    } catch (const std::system_error& error) {
        throw JTCSystemCallException(error.what());
    }
    m_bAlive = true;
}

void JTCThread::Main() noexcept {
    const JTCAdoptCurrentThread known;
    t_pCurrent = this;
    run();
    const std::lock_guard lock(m_mutex);
    m_bAlive = false;
    m_ended.notify_all();
}

bool JTCThread::isAlive() const {
    const std::lock_guard lock(m_mutex);
    return m_bAlive;
}

void JTCThread::join(long i_nMilliseconds) {
    if (t_pCurrent != nullptr && t_pCurrent->m_bInterrupted.exchange(false)) {
        throw JTCInterruptedException();
    }
    std::unique_lock lock(m_mutex);
    m_ended.wait_for(lock, std::chrono::milliseconds(i_nMilliseconds), [this] { return !m_bAlive; });
}

void JTCThread::interrupt() noexcept {
    m_bInterrupted.store(true);
}

bool JTCThread::isOwn() noexcept {
    return t_pCurrent != nullptr;
}

}  // namespace Harrowlib201
