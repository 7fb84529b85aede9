// The thread that removes expired contexts and renews those that near their end.
#pragma once

#include "harrow/threads/TerminatingThread.h"

namespace morwen {

class SecContextCache;

// Passes over the cache once a minute, the first time at once. Must be stopped before its last reference goes.
class SecContextUpdateThread : public Harrowlib201::TerminatingThread {
public:
    // The cache stays the caller's, and must outlive the thread.
    explicit SecContextUpdateThread(SecContextCache* i_pCache) : m_pCache(i_pCache) {}

    // One pass.
    void CleanUp();

protected:
    ~SecContextUpdateThread() override;
    void run() override;

private:
    SecContextCache* m_pCache;
};

}  // namespace morwen
