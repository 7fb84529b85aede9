#include "cache/SecContextUpdateThread.h"

#include "cache/SecContextCache.h"
#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {
constexpr long kPauseMilliseconds = 60000;
}

SecContextUpdateThread::~SecContextUpdateThread() {
    S_ASSERT(isStopped());
}

void SecContextUpdateThread::run() {
    if (m_pCache == nullptr) {
        S_FAIL("ssoplugin: SecContextUpdateThread::run() -- No cache for this thread to manage!");
        return;
    }
    S_TRACE("ssoplugin: SecContextUpdateThread::run() -- Thread starting up.");
    // Who made this thread may be acting as a user, and on some systems a new thread begins as its maker.
    if (!Platform::Tokens().RevertToSelf()) {
        S_FAIL("ssoplugin: SecContextUpdateThread::run() -- The thread cannot become the service.");
        return;
    }
    try {
        while (!isStopped()) {
            CleanUp();
            S_TRACE("ssoplugin: SecContextUpdateThread::run() -- Thread sleeping for 60s.");
            if (sleep_with_stop_alarm(kPauseMilliseconds)) {
                S_TRACE("ssoplugin: SecContextUpdateThread::run() -- Thread has been stopped.");
                break;
            }
        }
    } catch (const SSOException&) {
        S_FAIL("ssoplugin: SecContextUpdateThread::run() -- Caught an internal exception!");
    } catch (...) {
        S_FAIL("ssoplugin: SecContextUpdateThread::run() -- Caught an unknown exception!");
    }
    S_TRACE("ssoplugin: SecContextUpdateThread::run() -- Thread stopped.");
}

void SecContextUpdateThread::CleanUp() {
    if (m_pCache == nullptr) {
        S_FAIL("ssoplugin: SecContextUpdateThread::CleanUp() -- No cache for this thread to manage!");
        return;
    }
    try {
        const auto mapSnapshot = m_pCache->Snapshot();
        const SDateTime now = SDateTime::GetCurrentDateTime();
        for (const auto& [ssKey, pToken] : mapSnapshot) {
            if (isStopped()) {
                S_TRACE(
                    "ssoplugin: SecContextUpdateThread::CleanUp() -- Thread has been stopped; aborting cleanup scan");
                return;
            }
            if (pToken && !(pToken->Expired(now) && m_pCache->RemoveExpired(ssKey, pToken, now))) {
                pToken->Renegotiate(now);
            }
        }
    } catch (const SSOException&) {
        S_FAIL("ssoplugin: SecContextUpdateThread::CleanUp() -- Caught an internal exception!");
    } catch (...) {
        S_FAIL("ssoplugin: SecContextUpdateThread::CleanUp() -- Caught an unknown exception!");
    }
}

}  // namespace morwen
