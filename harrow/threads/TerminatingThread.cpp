#include "harrow/threads/TerminatingThread.h"

#include <chrono>

namespace Harrowlib201 {

bool TerminatingThread::isStopped() const {
    const std::lock_guard lock(m_sleepMutex);
    return m_bStopped;
}

void TerminatingThread::stop() {
    const std::lock_guard lock(m_sleepMutex);
    m_bStopped = true;
    m_alarm.notify_all();
}

void TerminatingThread::awake() {
    const std::lock_guard lock(m_sleepMutex);
    m_bAwake = true;
    m_alarm.notify_all();
}

bool TerminatingThread::sleep_with_stop_alarm(long i_nMilliseconds) {
    std::unique_lock lock(m_sleepMutex);
    m_alarm.wait_for(lock, std::chrono::milliseconds(i_nMilliseconds), [this] { return m_bStopped || m_bAwake; });
    m_bAwake = false;
    return m_bStopped;
}

}  // namespace Harrowlib201
