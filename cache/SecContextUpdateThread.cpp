#include "cache/SecContextUpdateThread.h"

#include "cache/SecContextCache.h"
#include "errors/SSOException.h"
#include "handlers/ActingThreads.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr long kPauseMilliseconds = 60000;

// One token's turn to be renewed; it passes without effect while the token's authority is silent.
class RenewalTurn final : public RenewalGate {
public:
    RenewalTurn(SilentAuthorities& i_silent, const SWCharString& i_ssKey) : m_silent(i_silent), m_ssKey(i_ssKey) {}

    bool MayRenew(StaticToken& i_token) override {
        if (i_token.IsAtWork()) {
            return false;  // for as long as a name service is slow: this thread waits for no user's call
        }
        m_ssAuthority = i_token.GetAuthority();
        if (m_ssAuthority.isEmpty()) {
            m_ssAuthority = m_ssKey;  // one of its own
        }
        m_begin = SDateTime::GetCurrentDateTime();
        m_eAnswer = m_silent.MayAsk(m_ssAuthority, m_begin);
        if (m_eAnswer != Answer::Ask) {
            S_TRACE(
                "ssoplugin: SecContextUpdateThread::CleanUp() -- The renewal of %1 is put off: %2 let one time "
                "out.",
                m_ssKey, m_eAnswer == Answer::Silent ? m_ssAuthority : SWCharString(u"other realms"));
        }
        m_bAsked = m_eAnswer == Answer::Ask;
        return m_bAsked;
    }

    void Note(bool i_bRenewed) {
        if (m_bAsked) {
            const SDateTime end = SDateTime::GetCurrentDateTime();
            m_silent.Note(m_ssAuthority, i_bRenewed, end - m_begin, end);
        }
    }

    // To the next pass, which is to begin with it.
    bool IsPutOff() const noexcept { return m_eAnswer == Answer::Later; }

private:
    using Answer = SilentAuthorities::Answer;

    SilentAuthorities& m_silent;
    const SWCharString& m_ssKey;
    SWCharString m_ssAuthority;
    SDateTime m_begin;
    Answer m_eAnswer = Answer::Ask;
    bool m_bAsked = false;
};

}  // namespace

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
        CleanUpAll();
    } catch (const SSOException&) {
        S_FAIL("ssoplugin: SecContextUpdateThread::CleanUp() -- Caught an internal exception!");
    } catch (...) {
        S_FAIL("ssoplugin: SecContextUpdateThread::CleanUp() -- Caught an unknown exception!");
    }
}

void SecContextUpdateThread::CleanUpAll() {
    ActingThreads::ForgetEnded();  // a context is in use no more when its thread is gone
    const auto mapSnapshot = m_pCache->Snapshot();
    const SDateTime now = SDateTime::GetCurrentDateTime();
    m_silent.BeginPass();
    SWCharString ssPutOff;
    auto itToken = mapSnapshot.lower_bound(m_ssNext);
    for (size_t nLeft = mapSnapshot.size(); nLeft > 0; --nLeft) {
        if (itToken == mapSnapshot.end()) {
            itToken = mapSnapshot.begin();
        }
        if (isStopped()) {
            S_TRACE("ssoplugin: SecContextUpdateThread::CleanUp() -- Thread has been stopped; aborting cleanup scan");
            return;
        }
        const auto& [ssKey, pToken] = *itToken;
        ++itToken;
        // Should this one end the pass by throwing, those behind it still get their turn.
        m_ssNext = itToken != mapSnapshot.end() ? itToken->first : SWCharString();
        if (pToken && !CleanUpOne(ssKey, pToken, now) && ssPutOff.isEmpty()) {
            ssPutOff = ssKey;
        }
    }
    m_ssNext = ssPutOff;
}

bool SecContextUpdateThread::CleanUpOne(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken, SDateTime i_now) {
    if (i_pToken->Expired(i_now) && m_pCache->RemoveExpired(i_ssKey, i_pToken, i_now)) {
        return true;
    }
    RenewalTurn turn(m_silent, i_ssKey);
    const bool bRenewed = i_pToken->Renegotiate(i_now, &turn);
    if (bRenewed) {
        m_pCache->NoteRenewal(i_ssKey);
    }
    turn.Note(bRenewed);
    return !turn.IsPutOff();
}

}  // namespace morwen
