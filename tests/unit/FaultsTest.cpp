// Each call of the system that a whole life of the package makes fails in its turn.
#include <thread>

#include "fakes/ExportsTest.h"
#include "fakes/TestClock.h"
#include "handlers/StaticToken.h"

namespace morwen {
namespace {

constexpr int64_t kHour = 3600000;
constexpr int64_t kLogin = INT64_C(1774735200123);
const std::string kNoSelf = "failed to revert to security context of process.";

class Faults : public ExportsTest {
protected:
    // A call does all that it promises, or it fails, hands out nothing and leaves the thread who it is.
    void Expect(const std::string& i_result, const std::string& i_good, bool i_bActsAfter) {
        m_bActs = i_result == i_good ? i_bActsAfter : m_bActs;
        EXPECT_TRUE(i_result == i_good || i_result == "100" || i_result == "100|null|") << i_result << " " << i_good;
        EXPECT_EQ(m_fake.IsImpersonating(), m_bActs) << i_good;
        m_bAllGood &= i_result == i_good;
    }
    void Act(const Key& i_key, bool i_bOn) {
        const std::string result = std::to_string((i_bOn ? SSOImpersonate : SSORevert)(Host(i_key.c_str())));
        if (i_bOn && result != "0" && m_trace.Contains(kNoSelf)) {
            m_bActs = m_fake.IsImpersonating();  // a user that it can neither act as nor leave
        }
        Expect(result, "0", i_bOn);
    }
    // Until the update thread has ended its first pass, which would renew beside this thread.
    void WaitForUpdateThread() const {
        while (!m_trace.Contains("Thread sleeping for 60s.") && !m_trace.Contains("cannot become the service.")) {
            std::this_thread::yield();
        }
    }
    // As the update thread does it, which has no other way to say that it could not become the service again.
    void Renew(const Key& i_key) {
        if (i_key.empty()) {
            return;
        }
        m_clock.Set(kLogin + 10 * kHour);
        m_fake.m_lifespan.m_nExpiry = FakePlatform::LocalTime(kLogin + 20 * kHour);
        const auto* const pszKey = reinterpret_cast<const SSOChar*>(i_key.c_str());
        const StaticTokenPtr pToken(reinterpret_cast<StaticToken*>(std::stoull(Utf8(pszKey))));
        m_bAllGood &= pToken->Renegotiate(SDateTime::GetCurrentDateTime());
        m_bActs = m_fake.IsImpersonating();
        EXPECT_TRUE(!m_bActs || m_trace.Contains(kNoSelf));
    }
    // Everything once; whether all went well.
    bool Live() {
        Key client, server, none;
        Outputs captured;
        m_bAllGood = true;
        m_clock.Set(kLogin);
        m_fake.m_lifespan.m_nExpiry = FakePlatform::LocalTime(kLogin + 10 * kHour);
        const Chain settings({{u"SI_CACHE_SECCONTEXT", 3, u"1"},
                              {u"SSPI_CTXT_CACHE_EXPIRY", 2, u"39600"},
                              {u"SI_SERVER_SSPI_SPN", 1, u"http/server"}});
        Expect(std::to_string(SSOInitProvider(Host(u"SSPI"), settings)), "0", false);
        if (m_bAllGood) {
            WaitForUpdateThread();
        }
        Expect(Start(client), "1|#|from client", false);
        Expect(Accept(server, "from client", true), "1|#|from server|S-1-5-18", false);
        Expect(Continue(client, "from server"), "0|null|", false);
        Expect(Accept(server, "", true), "2|#||S-1-5-18", false);
        const bool bKept = SSOLookupSecurityContext(Host(server.c_str())) == SSO_OK;
        const Key context = bKept ? server : none;
        Act(context, true);
        Expect(Start(client), "1|#|from client", m_bActs);
        const uint32_t nCode = SSOAcquireCurrentSecurityContext(Host(u"THREADTOKEN"), nullptr, &captured.m_pszKey);
        Expect(captured.Result(nCode, none), "0|#|", m_bActs);
        Act(context, false);
        Act(none, true);
        Act(none, false);
        Renew(m_bActs ? Key() : context);
        Act(context, true);
        Act(context, false);
        return m_bAllGood;
    }
    void LiveOn() {
        m_fake.FailCall(0);
        Platform::Tokens().RevertToSelf();
        m_bActs = false;
        EXPECT_EQ(SSOTermPackage() + SSOInitPackage(), 0U);  // gives back all that is held
        EXPECT_EQ(m_fake.Faults(), "");
        m_trace.Said({});
        EXPECT_TRUE(Live());
        EXPECT_EQ(SSOTermPackage() + SSOInitPackage(), 0U);
        EXPECT_TRUE(m_trace.Said({}));
    }

    TestClock m_clock{kLogin};
    bool m_bActs = false;
    bool m_bAllGood = true;
};

TEST_F(Faults, OfEachCallOfTheSystemInTurn) {
    for (const bool bAndAllThatFollow : {false, true}) {
        bool bCame = true;
        size_t nSpoiled = 0;
        for (size_t nCall = 1; bCame; ++nCall) {
            SCOPED_TRACE(std::to_string(nCall) + (bAndAllThatFollow ? " and all that follow" : ""));
            m_fake.FailCall(nCall, bAndAllThatFollow);
            const bool bGood = Live();
            EXPECT_EQ(SSOTermPackage() + SSOInitPackage(), 0U);
            bCame = m_fake.FailCall(0);
            EXPECT_TRUE(bGood || bCame);
            nSpoiled += bGood ? 0 : 1;
            LiveOn();
        }
        EXPECT_GT(nSpoiled, 20U);
    }
}

}  // namespace
}  // namespace morwen
