// The thread that removes expired contexts and renews those that near their end.
#pragma once

#include "cache/SilentAuthorities.h"
#include "handlers/StaticToken.h"
#include "harrow/threads/TerminatingThread.h"

namespace morwen {

class SecContextCache;

// Passes over the cache once a minute, the first time at once. Must be stopped before its last reference goes.
class SecContextUpdateThread : public Harrowlib201::TerminatingThread {
public:
    // The cache stays the caller's, and must outlive the thread.
    explicit SecContextUpdateThread(SecContextCache* i_pCache) : m_pCache(i_pCache) {}

    // One pass. It begins where the one before had to stop, or put a renewal off, and goes round.
    void CleanUp();

protected:
    ~SecContextUpdateThread() override;
    void run() override;

private:
    void CleanUpAll();
    // False when the renewal has been put off for others' sake.
    bool CleanUpOne(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken, SDateTime i_now);

    SecContextCache* m_pCache;
    SilentAuthorities m_silent;
    SWCharString m_ssNext;  // the key to begin the next pass with, or the first behind it
};

}  // namespace morwen
