// A thread that can be asked to stop.
#pragma once

#include "harrow/threads/JTCThread.h"

namespace Harrowlib201 {

class TerminatingThread : public virtual JTCThread {
public:
    // Whether a stop was asked for; the thread ends when it next looks.
    bool isStopped() const;
    // Asks the thread to stop, and wakes it.
    void stop();
    // Wakes the thread out of its sleep.
    void awake();

protected:
    // Sleeps for so many milliseconds at most, or until it is woken. True when a stop was asked for.
    bool sleep_with_stop_alarm(long i_nMilliseconds);

private:
    mutable std::mutex m_sleepMutex;
    std::condition_variable m_alarm;
    bool m_bStopped = false;
    bool m_bAwake = false;
};

}  // namespace Harrowlib201
