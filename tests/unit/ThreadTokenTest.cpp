// The captured identities of threads.
#include "fakes/PlatformTest.h"
#include "fakes/TestClock.h"
#include "handlers/factory/SSOHandlerFactory.h"

namespace morwen {
namespace {

class ThreadTokenTest : public PlatformTest {
protected:
    static SSOHandlerPtr Handler(const char16_t* i_pszType = u"THREADTOKEN") {
        return SSOHandlerFactory::instance()->GetHandler(i_pszType);
    }
    static std::string Acquire(const SSOSessionPtr& i_pSession) {
        return Thrown([&] { return Handler()->AcquireCurrentContext(i_pSession, Parameters()); });
    }
};

TEST_F(ThreadTokenTest, TheThreadsTokenOrTheProcesss) {
    SSOSessionPtr pSession = Handler()->CreateSession(nullptr);
    const std::string fallback = "AcquireCurrentContext() -- OpenThreadToken() failed.  Trying process token.";
    m_fake.Script("OpenThreadToken", {0});
    EXPECT_EQ(Acquire(pSession), "");
    // One that does not open for another reason than that there is none, or whose client only named itself.
    m_fake.Script("OpenThreadToken", {5});
    EXPECT_EQ(Acquire(pSession), "100/61217");
    m_fake.m_nLevel = SecurityIdentification;
    m_fake.Script("OpenThreadToken", {0});
    EXPECT_EQ(Acquire(pSession), "100/61217");
    EXPECT_TRUE(m_trace.Said({"Could not get token for thread nor process: The fake", "lets nobody act as that."}));
    EXPECT_FALSE(m_trace.Contains(fallback));
    EXPECT_EQ(Acquire(pSession), "");
    EXPECT_TRUE(m_trace.Said({fallback}));
    EXPECT_EQ(m_fake.Log("OpenThreadToken"), std::vector<std::string>(4, "this thread, access 14, as self"));
    EXPECT_EQ(m_fake.Log("OpenProcessToken"), std::vector<std::string>(1, "this process, access 14"));
    m_fake.Script("OpenProcessToken", {5});
    EXPECT_EQ(Acquire(pSession), "100/61217");
    EXPECT_EQ(Acquire(Handler(u"SSPI")->CreateSession(nullptr)) + Acquire(nullptr), "100/42254100/42254");
    EXPECT_TRUE(m_trace.Said({"AcquireCurrentSecurityContext() -- Could not get token for thread nor process: The fake",
                              "AcquireCurrentContext() -- Wrong type of SSOSessionPtr passed in.", "i_pSession"}));
}

TEST_F(ThreadTokenTest, OffersNoHandshake) {
    Parameters none;
    uint8_t* pv = nullptr;
    uint64_t n = 0;
    SSOHandler& handler = *Handler();
    const std::string thrown[] = {
        Thrown([&] { return handler.InitializeContext(nullptr, nullptr, pv, 0, &pv, &n); }),
        Thrown([&] { return handler.AcceptContext(nullptr, nullptr, pv, 0, &pv, &n, false, none); }),
        Thrown([&] { return handler.CreateCredentials({}, {}, 0); }),
        Thrown([&] { return handler.AllocateBuffer(1); }),
        Thrown([&] { return handler.FreeBuffer(nullptr), 0; }),
        Thrown([&] { return Handler(u"SSPI")->AcquireCurrentContext(nullptr, none); })};
    for (const std::string& text : thrown) {
        EXPECT_EQ(text, "101/42254") << &text - thrown;
    }
}

TEST_F(ThreadTokenTest, AHandleIsClosedOnceAndImpersonationsAreCounted) {
    SSOSessionPtr pSession = Handler()->CreateSession(nullptr);
    EXPECT_EQ(Acquire(pSession) + Acquire(pSession), "");
    EXPECT_EQ(m_fake.Log("CloseHandle").size(), 1U);
    StaticTokenPtr pToken = pSession->GetStaticToken();
    EXPECT_EQ(Thrown([&] { return pSession->GetStaticToken(); }), "100/42254");
    pSession = nullptr;
    EXPECT_EQ(Switch(pToken, "i", {{"ImpersonateLoggedOnUser", {5}}}), "100/61212 0");
    EXPECT_EQ(Switch(pToken, "i"), " 1 acts");
    EXPECT_EQ(Switch(pToken, "r", {{"RevertToSelf", {5}}}), "100/61212 1 acts");
    EXPECT_EQ(Switch(pToken, "rr"), " 0 0");
    EXPECT_EQ(m_fake.Log("CloseHandle").size(), 2U);  // and the thread's, looked at
    m_fake.m_nLevel = SecurityIdentification;
    EXPECT_EQ(Switch(pToken, "ir"), "100/61212 0 0");
    m_fake.m_nLevel = SecurityDelegation;
    m_fake.Script("CloseHandle", {6});
    pToken = nullptr;
    pSession = Handler()->CreateSession(nullptr);
    EXPECT_EQ(Acquire(pSession), "");
    m_fake.Script("CloseHandle", {6});
    pSession = nullptr;
    EXPECT_EQ(m_fake.Log("CloseHandle").size(), 5U);
    EXPECT_TRUE(m_trace.Said({"ThreadStaticToken::Impersonate() -- Could not impersonate: The fake failed.",
                              "ThreadStaticToken::Revert() -- Could not revert: The fake failed.",
                              "ThreadStaticToken::ThreadStaticToken() -- NULL handle! (i_pToken)",
                              "ThreadStaticToken::~ThreadStaticToken() -- Failed to close handle!",
                              "ThreadTokenSession::~ThreadTokenSession() -- Failed to close handle!"}));
}

TEST_F(ThreadTokenTest, OnlyTheSettingsEndIt) {
    SSOSessionPtr pSession = Handler()->CreateSession(nullptr);
    const TestClock clock(5000000);
    EXPECT_EQ(Acquire(pSession), "");
    const StaticTokenPtr pToken = pSession->GetStaticToken();
    constexpr const char16_t* kExpiry = u"SSPI_CTXT_CACHE_EXPIRY";
    constexpr int64_t kLong = int64_t{1} << 50;
    const std::pair<Chain::Element, int64_t> aCases[] = {
        {{u"OTHER", 2, u"1"}, 86400000},
        {{kExpiry, 2, u"60"}, 60000},
        {{kExpiry, 1, u"9"}, 60000},
        {{kExpiry, 2, u"0"}, kLong},
        {{kExpiry, 2, u"9223372036854774"}, kLong},
        {{kExpiry, 2, u"9223372036854775"}, -1000},
        {{kExpiry, 2, u"2305843009213693952"}, -1000},    // 2^61, times 1000 a multiple of 2^64
        {{kExpiry, 2, u"-2305843009213693952"}, -1000}};  // the same below zero
    for (const auto& [setting, nLast] : aCases) {
        EXPECT_EQ(Thrown([&setting = setting] { return Handler()->InitHandler(Parameters(Chain({setting}))), 0; }),
                  setting.m_nType == 1 ? "100/42038/SSPI_CTXT_CACHE_EXPIRY" : "");
        EXPECT_FALSE(pToken->Expired(SDateTime(5000000 + nLast)));
        EXPECT_EQ(pToken->Expired(SDateTime(5000001 + nLast)), nLast <= 86400000);
        EXPECT_FALSE(pToken->Renegotiate(SDateTime(5000000 + nLast)));
    }
    EXPECT_TRUE(m_trace.Said({"ThreadTokenHandler::InitHandler() -- Setting cache timeout to 60", "p.m_eType",
                              "ThreadTokenHandler::InitHandler() -- Type mismatch getting the cache expiry time."}));
}

}  // namespace
}  // namespace morwen
