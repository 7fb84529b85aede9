// The contexts of finished Kerberos logins: their end, impersonation and renewal.
#include <limits>
#include <thread>

#include "fakes/PlatformTest.h"
#include "fakes/TestClock.h"
#include "handlers/ActingThreads.h"
#include "handlers/HandlerToken.h"
#include "handlers/RenewalRule.h"
#include "handlers/kerberos/SSPIStaticToken.h"

namespace morwen {
namespace {

using Harrowlib201::MakeCounted;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kHour = 3600000;
constexpr SECURITY_STATUS kNo = SEC_E_UNSUPPORTED_FUNCTION;
const std::string kNoSelf = "failed to revert to security context of process.";

class StaticTokenTest : public PlatformTest {
protected:
    static constexpr int64_t kLogin = INT64_C(1774735200123);  // the evening before the clocks change in Europe

    // A login whose ticket lasts for ten hours.
    StaticTokenPtr MakeToken(int64_t i_nLogin = kLogin, int64_t i_nExpiry = kLogin + 10 * kHour) {
        m_clock.Set(i_nLogin);
        m_fake.m_lifespan.m_nExpiry = FakePlatform::LocalTime(i_nExpiry);
        return Accept()->GetStaticToken();
    }
    static SSOHandlerPtr Handler() { return SSOHandlerFactory::instance()->GetHandler(u"SSPI"); }
    // A session of the server side after its first step.
    static SSOSessionPtr Accept() {
        HandlerToken token(*Handler());
        Parameters none;
        SSOSessionPtr pSession = Handler()->CreateSession(nullptr);
        Handler()->AcceptContext(Handler()->CreateCredentials({}, {}, SSOHandler::kInbound), pSession,
                                 reinterpret_cast<const uint8_t*>("x"), 1, &token.m_pvToken, &token.m_nLength, false,
                                 none);
        return pSession;
    }
    static void Set(const std::vector<Chain::Element>& i_settings) {
        Handler()->InitHandler(Parameters(Chain(i_settings)));
    }

    TestClock m_clock{kLogin};
};

TEST_F(StaticTokenTest, RenewalIsDueOnlyBetweenItsBorders) {
    const int64_t nWrapped = -INT64_C(46116860184273879);  // a hundredth of three times half the largest span
    // The cache's expiry, the threshold, the lifetime, the age, what is left, and whether it is due.
    const int64_t aCases[][6] = {
        {2000, 10, 1000, 500, 100, 1},  {2000, 10, 1000, 500, 101, 0},       {2000, 10, 1000, 500, -1, 1},
        {0, 10, 1000, 500, 100, 0},     {1000, 10, 1000, 500, 100, 0},       {1001, 10, 1000, 500, 100, 1},
        {-1000, 10, 1000, 500, 100, 0}, {kMax, 10, 1000, 500, 100, 1},       {2000, 10, 1000, 1999, 100, 1},
        {2000, 10, 1000, 2000, 100, 0}, {2000, 10, 1000, 2001, 100, 0},      {2000, 0, 1000, 500, 50, 1},
        {2000, 0, 1000, 500, 51, 0},    {2000, 5, 1001, 500, 50, 1},         {2000, 5, 1001, 500, 51, 0},
        {2000, 99, 1000, 500, 990, 1},  {2000, 99, 1000, 500, 991, 0},       {2000, 100, 1000, 500, 50, 1},
        {2000, 100, 1000, 500, 51, 0},  {2000, 255, 1000, 500, 50, 1},       {2000, 255, 1000, 500, 51, 0},
        {kMax, 3, kMax / 2, 0, 0, 0},   {kMax, 3, kMax / 2, 0, nWrapped, 1}, {kMax, 3, kMax / 2, 0, nWrapped + 1, 0}};
    for (const auto& [nExpiry, nThreshold, nLifetime, nAge, nLeft, nDue] : aCases) {
        const auto nPercentage = static_cast<uint8_t>(nThreshold);
        const STimeSpan expiry(nExpiry), lifetime(nLifetime), age(nAge), left(nLeft);
        RenewalRule rule{true, expiry, nPercentage, lifetime, age, left};
        EXPECT_EQ(rule.IsDue(), nDue != 0) << nExpiry << " " << nThreshold << " " << nAge << " " << nLeft;
        const bool bOdd = nThreshold == 0 || nThreshold >= 100;
        EXPECT_TRUE(m_trace.Said({bOdd ? "nThresholdPercentage < 100 && nThresholdPercentage > 0" : ""}));
        rule.m_bAllowed = false;
        EXPECT_FALSE(rule.IsDue());
    }
}

TEST_F(StaticTokenTest, TheTicketsEndIsAnInstant) {
    const int64_t nSummer = kLogin + kHour * 24 * 90;
    for (const auto& [nLogin, nExpiry] : {std::pair{kLogin, kLogin + 10 * kHour}, {nSummer, nSummer + kHour + 1}}) {
        const StaticTokenPtr pToken = MakeToken(nLogin, nExpiry);
        EXPECT_FALSE(m_trace.Contains("expired"));
        EXPECT_FALSE(pToken->Expired(SDateTime(nExpiry)));
        EXPECT_TRUE(pToken->Expired(SDateTime(nExpiry + 1)));
        EXPECT_TRUE(m_trace.Said({"SSPIStaticToken::Expired() -- expired!"}));
        EXPECT_EQ(pToken->GetTimeToExpiry(SDateTime(nExpiry - 5)), STimeSpan(5));
        EXPECT_EQ(pToken->GetLifetime(), STimeSpan(nExpiry - nLogin));
    }
    EXPECT_EQ(m_fake.Log("QueryContextAttributesW").back(), "2");
    m_fake.Script("FileTimeToSystemTime", {87});
    const StaticTokenPtr pToken = MakeToken();
    EXPECT_TRUE(m_trace.Said({"Expired() -- Could not read expiry time.  Treating as expired.",
                              "SSPIStaticToken::SSPIStaticToken() -- This token has already expired!"}));
    EXPECT_TRUE(pToken->GetLifetime().isZero() && pToken->GetTimeToExpiry(SDateTime()).isZero());
    m_fake.Script("QueryContextAttributesW", {SEC_E_INTERNAL_ERROR});
    EXPECT_TRUE(MakeToken()->Expired(SDateTime(0)));
    EXPECT_TRUE(MakeToken(kLogin, kLogin - 1)->Expired(SDateTime(kLogin)));  // kept all the same
    EXPECT_TRUE(m_trace.Said({"This token has already expired!"}));
}

TEST_F(StaticTokenTest, TheSettingsEndItToo) {
    const StaticTokenPtr pToken = MakeToken();
    // The setting, and the first age at which the context has expired.
    for (const auto& [pszExpiry, nAge] : {std::pair<const char16_t*, int64_t>{u"0", 10 * kHour + 1},
                                          {u"600", 600001},
                                          {u"-5", -4999},
                                          {u"9223372036854775", -999}}) {
        Set({{u"SSPI_CTXT_CACHE_EXPIRY", 2, pszExpiry}});
        EXPECT_TRUE(pToken->IsExpired(SDateTime(kLogin + nAge)) && !pToken->IsExpired(SDateTime(kLogin + nAge - 1)));
    }
    EXPECT_TRUE(m_trace.Said({"StaticToken::ExpiredByConfiguration() -- This token has expired.", "lExpiryTime <"}));
    // A token of an earlier life of the package follows the settings that it had.
    SSOHandlerFactory::instance()->ReleaseHandlers();
    Set({{u"SSPI_CTXT_CACHE_EXPIRY", 2, u"0"}});
    EXPECT_TRUE(pToken->IsExpired(SDateTime(kLogin)));
}

TEST_F(StaticTokenTest, ImpersonationsAreCounted) {
    const StaticTokenPtr pToken = MakeToken();
    const CallAnswers::value_type noRevert = {"RevertSecurityContext", {kNo}}, noSelf = {"RevertToSelf", {kNo}};
    EXPECT_EQ(Switch(pToken, "i", {{"ImpersonateSecurityContext", {kNo}}}), "100/61212 0");
    EXPECT_EQ(Switch(pToken, "iir"), " 1 acts 1 acts 0");  // the thread's second replaces its first
    EXPECT_EQ(Switch(pToken, "i"), " 1 acts");
    EXPECT_EQ(Switch(pToken, "r", {noRevert, noSelf}), "100/61212 1 acts");
    EXPECT_EQ(Switch(pToken, "r", {noRevert}), " 0");
    EXPECT_TRUE(m_trace.Said({"Could not impersonate.", kNoSelf, "using RevertToSelf(). Error -2146893054"}));
    EXPECT_EQ(Switch(pToken, "r"), " 0");
    EXPECT_EQ(Switch(pToken, "r", {noSelf}), "100/61212 0");
    EXPECT_TRUE(m_trace.Said({"Revert() called for context that had not been impersonated.", kNoSelf}));
    EXPECT_EQ(m_fake.Log("RevertToSelf").size(), 4U);

    m_fake.m_nLevel = SecurityIdentification;  // which a client may choose
    EXPECT_EQ(Switch(pToken, "i"), "100/61212 0");
    m_fake.m_nLevel = SecurityImpersonation;
    EXPECT_TRUE(m_trace.Said({"Could not impersonate."}));

    StaticTokenPtr pOther = MakeToken();
    EXPECT_EQ(Switch(pToken, "i"), " 1 acts");
    EXPECT_EQ(Switch(pOther, "i"), " 1 acts");
    EXPECT_EQ(pToken->GetImpersonationCount(), 0U);
    std::thread([&] { EXPECT_EQ(Switch(pOther, "r"), " 1"); }).join();  // another thread's
    EXPECT_EQ(Switch(pToken, "r"), " 0");
    EXPECT_EQ(pOther->GetImpersonationCount(), 0U);
    EXPECT_EQ(Switch(pOther, "i"), " 1 acts");
    std::thread([&] {
        EXPECT_EQ(Switch(pToken, "i"), " 1 acts");
        Platform::Tokens().RevertToSelf();  // the host's own, of which nobody hears
    }).join();
    pOther = nullptr;
    ActingThreads::ForgetEnded();
    EXPECT_EQ(Switch(pToken, "r"), " 0");
    EXPECT_TRUE(m_trace.Said({"for context that had not been impersonated."}));
}

TEST_F(StaticTokenTest, OneContextIsDeletedOnce) {
    m_fake.Script("AcceptSecurityContext", {SEC_I_CONTINUE_NEEDED, "t"});
    SSOSessionPtr pSession = Accept();
    EXPECT_EQ(Thrown([&] { return pSession->GetStaticToken(); }), "100/42254");
    pSession = Accept();
    EXPECT_EQ(m_fake.Log("DeleteSecurityContext").size(), 1U);  // of the one that was not established, with its session
    StaticTokenPtr pToken = pSession->GetStaticToken();
    EXPECT_EQ(Thrown([&] { return pSession->GetStaticToken(); }), "100/42254");
    pSession = nullptr;
    EXPECT_TRUE(m_trace.Said({"SSPISession::~SSPISession() -- CtxtHndle does not require releasing."}));
    EXPECT_EQ(Switch(pToken, "ir"), " 1 acts 0");
    m_fake.Script("DeleteSecurityContext", {SEC_E_INVALID_HANDLE});
    pToken = nullptr;
    EXPECT_EQ(m_fake.Log("DeleteSecurityContext").size(), 2U);
    EXPECT_EQ(Thrown([] { return MakeCounted<SSPIStaticToken>(nullptr, Handler()); }), "100/42254");
    EXPECT_TRUE(m_trace.Said({"SSPIStaticToken::~SSPIStaticToken() -- Could not delete context handle.",
                              "SSPIStaticToken::SSPIStaticToken() -- NULL context handle! (i_pContextHandle)"}));
}

// ---- Renewal ----

constexpr Chain::Element kSpn = {u"SI_SERVER_SSPI_SPN", 1, u"http/server"};
constexpr Chain::Element kElevenHours = {u"SSPI_CTXT_CACHE_EXPIRY", 2, u"39600"};

TEST_F(StaticTokenTest, ARenewalSwapsTheContext) {
    Set({kSpn, kElevenHours, {u"SSPI_CHANNEL_BINDINGS", 1, u"t:00"}});  // which the service requires of itself too
    const StaticTokenPtr pToken = MakeToken();
    pToken->Impersonate();
    Platform::Tokens().RevertToSelf();             // as if it were another thread that goes on as the user
    const int64_t nDue = kLogin + 19 * kHour / 2;  // five percent of ten hours are left
    m_fake.m_lifespan.m_nExpiry = FakePlatform::LocalTime(nDue + 10 * kHour);
    EXPECT_FALSE(pToken->Renegotiate(SDateTime(nDue - 1)));
    m_clock.Set(nDue);
    m_fake.Script("DeleteSecurityContext", {SEC_E_OK});  // the client's
    m_fake.Script("DeleteSecurityContext", {kNo});
    EXPECT_TRUE(pToken->Renegotiate(SDateTime(nDue)));
    EXPECT_TRUE(m_trace.Said({"StaticToken::Renegotiate() -- Renegotiating token."}));
    EXPECT_EQ(m_fake.Log("DeleteSecurityContext").size(), 2U);
    EXPECT_EQ(m_fake.Log("AcquireCredentialsHandleW").back(), "none, Kerberos, use 2, identity none, impersonating");
    EXPECT_EQ(m_fake.Log("InitializeSecurityContextW").back().substr(0, 26), "later, target http/server,");
    EXPECT_NE(m_fake.Log("InitializeSecurityContextW").back().find("[0:2:from server:14:"), std::string::npos);
    EXPECT_NE(m_fake.Log("AcceptSecurityContext").back().find("input [0:2:from client]"), std::string::npos);
    EXPECT_EQ(m_fake.Log("AcceptSecurityContext").size(), 2U);  // the login and the renewal
    EXPECT_EQ(pToken->GetLifetime(), STimeSpan(10 * kHour));
    EXPECT_TRUE(pToken->IsExpired(SDateTime(kLogin + 11 * kHour + 1)));  // still counted from the login
    EXPECT_FALSE(pToken->Renegotiate(SDateTime(nDue)));
    EXPECT_EQ(Switch(pToken, "r"), " 0");  // the new context
}

TEST_F(StaticTokenTest, AFailedRenewalLeavesEverythingAsItWas) {
    const FakeAnswer good, no = {kNo}, more = {SEC_I_CONTINUE_NEEDED, "t"}, done = {SEC_E_OK, "t"};
    const char* const pszAcquire = "AcquireCredentialsHandleW";
    const char *const pszClient = "InitializeSecurityContextW", *const pszServer = "AcceptSecurityContext";
    const CallAnswers::value_type c = {pszClient, more}, s = {pszServer, more};
    const CallAnswers::value_type noRevert = {"RevertSecurityContext", no}, noSelf = {"RevertToSelf", no};
    // What the calls answer, whether it is renewed, what is said, and how often the client's side is asked.
    const std::tuple<CallAnswers, bool, std::string, size_t> aCases[] = {
        {{{pszAcquire, good}, {pszAcquire, no}, noRevert, noSelf}, false, kNoSelf, 0},
        {{noRevert}, true, "RenegotiateImpl() revert failed -- revert using RevertToSelf(). Error -2146893054", 2},
        {{noRevert, noSelf}, false, kNoSelf, 0},
        {{{pszClient, {SEC_E_LOGON_DENIED}}}, false, "security context failed when acting as the client.", 1},
        {{{pszServer, {SEC_E_LOGON_DENIED}}}, false, "security context failed when acting as the server.", 1},
        {{{pszClient, done}}, true, "", 1},  // a side that is complete is asked no more
        {{c, c, c, c, s, s, s, {pszServer, done}}, true, "", 5},
        {{c, c, c, c, c, s, s, s, s, s}, false, "SSPIStaticToken::RenegotiateImpl() -- Stuck in loop, aborting!", 5},
        {{{pszAcquire, good}}, false, "The token says who its user is, and lets nobody act as that.", 0},
        {{{pszAcquire, good}}, false, "RenegotiateImpl() -- The fresh context is not the same user's.", 2},
        {{}, false, "KerberosSSPIHandler::GetSPN() -- Could not determine spn!", 0},
    };
    for (const auto& [answers, bRenewed, says, nSteps] : aCases) {
        SCOPED_TRACE(says);
        Set(!answers.empty() ? std::vector{kSpn, kElevenHours} : std::vector{kElevenHours});
        const StaticTokenPtr pToken = MakeToken();
        m_clock.Set(kLogin + 10 * kHour);
        m_fake.m_lifespan.m_nExpiry = FakePlatform::LocalTime(kLogin + 20 * kHour);
        Script(answers);
        m_fake.m_nLevel = says.find("who its user is") != std::string::npos ? 1 : SecurityImpersonation;
        m_fake.m_nextUserName = says.find("same user's") != std::string::npos ? u"REALM\\other" : m_fake.m_userName;
        const size_t nClientSteps = m_fake.Log(pszClient).size();
        EXPECT_EQ(pToken->Renegotiate(SDateTime(kLogin + 10 * kHour)), bRenewed);
        EXPECT_EQ(m_fake.Log(pszClient).size() - nClientSteps, nSteps);
        EXPECT_TRUE(m_trace.Said({says, bRenewed ? "" : "-- Failed to renegotiate security context."}));
        EXPECT_FALSE(m_fake.IsImpersonating());
        m_fake.m_nLevel = SecurityImpersonation;
        m_fake.m_userName = m_fake.m_nextUserName = u"REALM\\user";
        EXPECT_TRUE(bRenewed || pToken->GetLifetime() == STimeSpan(10 * kHour));
        EXPECT_EQ(m_fake.Faults(), "not given back: context\n");  // the token's
        EXPECT_EQ(Switch(pToken, "ir"), " 1 acts 0");
    }
}

}  // namespace
}  // namespace morwen
