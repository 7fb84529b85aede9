// Whole logins through the exports, and the sessions behind them.
#include <array>
#include <atomic>
#include <future>
#include <thread>

#include "fakes/ExportsTest.h"

namespace morwen {
namespace {

TEST_F(ExportsTest, LoginsOfBothSides) {
    Key client, server;
    EXPECT_EQ(Start(client), "1|#|from client");
    EXPECT_EQ(Accept(server, "from client", true), "1|#|from server|S-1-5-18");
    EXPECT_EQ(Continue(client, "from server"), "0|null|");
    EXPECT_EQ(Accept(server, "", true), "2|DUMMY_KEY__CACHING_IS_OFF||S-1-5-18");
    const std::string outbound = "none, Kerberos, use 2, identity none";
    const std::string inbound = "none, Kerberos, use 1, identity none";
    EXPECT_EQ(m_fake.Log("AcquireCredentialsHandleW"), (std::vector{outbound, inbound, outbound, inbound}));
    EXPECT_TRUE(m_trace.Said({"SessionManager::GenerateClientContext() -- SSO Provider from cache is SSPI",
                              "SessionManager::CopyToExternalBuffer() -- Zero-length source specified.",
                              "SessionManager::GenerateServerContext() -- returning 2"}));
    m_fake.Script("InitializeSecurityContextW", {SEC_E_OK, "at once"});
    EXPECT_EQ(Start(client), "0|DUMMY_KEY|at once");
    m_fake.Script("AcceptSecurityContext", {SEC_I_COMPLETE_NEEDED, "t"});
    server = u"12345";  // an unknown key begins a login
    EXPECT_EQ(Accept(server, "x"), "2|DUMMY_KEY__CACHING_IS_OFF|t");
    SSOChar* pszKey = nullptr;
    EXPECT_EQ(SSOAcquireCurrentSecurityContext(Host(u"SSPI"), nullptr, &pszKey), 100U);
    EXPECT_TRUE(m_trace.Said({"AcquireCurrentContext() -- Caching is turned off.  No sense in continuing!"}));
    EXPECT_TRUE(SessionsLeft("0"));
    SetCaching(true);
    server.clear();
    EXPECT_EQ(Accept(server, "x"), "1|#|from server");
    EXPECT_EQ(Accept(server, ""), "2|#|");
    EXPECT_EQ(Switch(server), "0 here 0");
    EXPECT_EQ(SSOImpersonate(Host(server.c_str())) + SSOInitPackage() + SSOTermPackage(), 0U);
    EXPECT_TRUE(m_fake.IsImpersonating());
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_FALSE(m_fake.IsImpersonating());
    EXPECT_EQ(SSOInitPackage(), 0U);
    EXPECT_EQ(SSOAcquireCurrentSecurityContext(Host(u"SSPI"), nullptr, &pszKey), 101U);
}

TEST_F(ExportsTest, TheUpdateThreadLivesAsLongAsThePackage) {
    const std::string started = "SecContextCache::StartUpdateThread() -- Update thread started.";
    EXPECT_TRUE(m_trace.Said({"Not starting the cache cleanup thread; may start later if needed."}));
    EXPECT_EQ(SSOInitProvider(Host(u"SSPI"), nullptr), 0U);
    EXPECT_FALSE(m_trace.Contains(started));
    EXPECT_TRUE(m_trace.Said({"Could not determine whether to start the update thread or not.  Delaying until"}));
    SetCaching(true);
    EXPECT_TRUE(m_trace.Said({started}));
    SetCaching(true);
    EXPECT_FALSE(m_trace.Contains(started));
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_TRUE(m_trace.Said({"SecContextUpdateThread::run() -- Thread stopped."}));
    EXPECT_EQ(SSOInitPackage(), 0U);
}

TEST_F(ExportsTest, FailedStepsKeepOnlyWhatTheHostCanName) {
    const FakeAnswer broken = {SEC_E_INVALID_TOKEN, "junk", FakeAnswer::kAlways};
    Key client, server, junk = u"abc";
    m_fake.Script("InitializeSecurityContextW", broken);
    m_fake.Script("AcceptSecurityContext", broken);
    EXPECT_EQ(Start(client) + Accept(server, "x", true), "100|null|100|null|");
    m_fake.Script("AcquireCredentialsHandleW", {SEC_E_NO_CREDENTIALS});
    EXPECT_EQ(Start(client), "100|null|");
    EXPECT_EQ(Record(), "100/61215");
    EXPECT_EQ(Start(client, nullptr), "100|null|");
    EXPECT_EQ(Record(), "100/61214");
    EXPECT_EQ(Record(), "none");
    m_fake.Script("GetTokenInformation", {5});
    EXPECT_EQ(Accept(server, "x", true), "100|null|");
    EXPECT_EQ(Continue(u"1", "x"), "100|null|");
    EXPECT_TRUE(m_trace.Said({"GenerateClientContext() -- Could not determine SSOProvider: No cached session!"}));
    EXPECT_EQ(Continue(u"", "x") + Continue(junk, "x") + Accept(junk, "x"), "100|null|100|null|100|null|");
    EXPECT_TRUE(SessionsLeft("0"));

    EXPECT_EQ(Start(client) + Accept(server, "x"), "1|#|from client1|#|from server");
    m_fake.Script("InitializeSecurityContextW", broken);
    m_fake.Script("AcceptSecurityContext", broken);
    EXPECT_EQ(Continue(client, "forged") + Accept(server, "forged"), "100|null|100|null|");
    EXPECT_EQ(Continue(client, "genuine"), "0|null|");
    EXPECT_EQ(Continue(client, "again"), "100|null|");
    EXPECT_TRUE(SessionsLeft("1"));
}

TEST_F(ExportsTest, OutputsThatHoldSomethingAreReported) {
    Outputs out;
    SSOChar aText[1] = {};
    out.m_pszKey = aText;
    out.m_pvBuffer = aText;
    EXPECT_EQ(out.Start(), 1U);
    EXPECT_NE(out.m_pszKey, aText);
    EXPECT_TRUE(m_trace.Said({"Non-NULL value passed in; could be leaking memory! (*o_ppvBuffer == NULL)",
                              "could be leaking memory! (*o_ppSessionKey == NULL)"}));
    SSOError error{};
    SSOError* pError = &error;
    SSOChar *pszKey = aText, *pszMessage = aText;
    ParasSeq stale{};
    ParasSeq* pChain = &stale;
    EXPECT_EQ(SSOContinueLogin(out.m_pszKey, "x", 1, &out.m_pvBuffer, nullptr), 100U);
    EXPECT_EQ(SSOGetError(103, &pError), 0U);  // asked for with another code
    EXPECT_EQ(SSOFreeError(pError), 0U);
    pError = &error;
    EXPECT_EQ(SSOGetError(100, &pError), 100U);
    EXPECT_EQ(SSOGetMessageContent(1, &pszMessage), 100U);
    EXPECT_EQ(SSOAcquireCurrentSecurityContext(Host(u"SSPI"), nullptr, &pszKey), 100U);
    EXPECT_EQ(SSOGetRequiredParameters(Host(u"X"), &pChain), 100U);
    EXPECT_EQ(SSOAcceptLogin(Host(u"SSPI"), nullptr, "x", 1, nullptr, &out.m_nLength, nullptr, &out.m_pszKey), 100U);
    EXPECT_EQ(SSOStartLogin(nullptr, nullptr, nullptr, nullptr, nullptr, &out.m_pvBuffer, &out.m_nLength), 100U);
    EXPECT_TRUE(pError == nullptr && pszMessage == nullptr && pszKey == nullptr && pChain == nullptr);
    EXPECT_TRUE(m_trace.Said(
        {"SSOImpl::ContinueLogin() -- Bad parameters!", "o_pnBufferLength", "(*o_ppError)->errCode == i_ErrorCode",
         "SSOImpl::GetError() -- Assigning error to a non-NULL object; possible memory leak!",
         "SSOImpl::GetError() -- Could not get error details.",
         "SSOImpl::GetErrorMessage() -- Assigning error message to a non-NULL string; possible memory leak!",
         "SSOImpl::GetErrorMessage() -- Could not get error details.",
         "SSOImpl::AcquireCurrentSecurityContext() -- Non-null input string.  Possibly overwriting existing data!",
         "Caching is turned off", "Overwriting non-NULL data!  Possible leak!", "Unsupported type: X",
         "SSOImpl::AcceptLogin() -- Bad parameters!", "o_ppvBuffer", "o_ppSessionKey",
         "SSOImpl::StartLogin() -- NULL pointer for returning data!"}));
}

TEST_F(ExportsTest, ThePackageCountsItsUsers) {
    Key key;
    Outputs out;
    EXPECT_EQ(SSOInitPackage(), 0U);
    EXPECT_TRUE(m_trace.Said({"SSOImpl::Initialize() -- Already initialized; incrementing refcount (2)"}));
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_EQ(
        SSOStartLogin(nullptr, nullptr, Host(u"SSPI"), SpnChain(), &out.m_pszKey, &out.m_pvBuffer, &out.m_nLength), 1U);
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_EQ(Start(key), "100|null|");
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_TRUE(m_trace.Said({"SSOImpl::Shutdown() -- Called more times than Initialize()!", "m_nInitRefcount > 0"}));
    EXPECT_EQ(SSOFreeBuffer(out.m_pvBuffer), 0U);  // not freed yet: the package is not started
    EXPECT_EQ(SSOInitPackage(), 0U);
    EXPECT_TRUE(m_trace.Said({"SSOImpl::Initialize() -- Successfully initialized.  Refcount is now 1"}));
    EXPECT_EQ(Record(), "none");
}

TEST_F(ExportsTest, OnlyTheLastEndWaitsForALoginUnderWay) {
    std::promise<void> inside, goOn;
    std::atomic<int> nLogins = 0;
    m_trace.m_onSaid = [&](const std::string& i_message) {
        if (i_message.find("Looking for a handler for SSPI") != std::string::npos && nLogins++ == 0) {
            inside.set_value();
            goOn.get_future().wait();  // a KDC that is silent
        }
    };
    const auto call = [](auto i_pfnExport) { return std::async(std::launch::async, i_pfnExport); };
    const auto isOver = [](auto& i_call, int i_nSeconds) {
        return i_call.wait_for(std::chrono::seconds(i_nSeconds)) == std::future_status::ready;
    };
    Outputs held;  // which can only be given back while the package is started
    Key key;
    auto login = std::async(std::launch::async, [&] { return held.Result(held.Start(SpnChain()), key); });
    inside.get_future().wait();
    for (int i = 0; i < 2; ++i) {
        auto counted = call(i == 0 ? SSOInitPackage : SSOTermPackage);
        EXPECT_TRUE(isOver(counted, 10));
        EXPECT_EQ(counted.get(), 0U);
    }
    auto ended = call(SSOTermPackage);
    while (SSOLookupSecurityContext(Host(u"1")) != SSO_ERROR) {  // from now on the package is not started
    }
    Key client;
    EXPECT_EQ(Start(client), "100|null|");
    auto started = call(SSOInitPackage);
    EXPECT_FALSE(isOver(started, 0) || isOver(ended, 0));
    goOn.set_value();
    EXPECT_TRUE(isOver(ended, 10) && isOver(started, 10));
    EXPECT_EQ(ended.get() + started.get(), 0U);
    EXPECT_EQ(login.get(), "1|#|from client");
    m_trace.m_onSaid = [](const std::string&) {};
    EXPECT_EQ(Start(client), "1|#|from client");
}

TEST_F(ExportsTest, ASinkStartsAndEndsNothing) {
    std::atomic<int> nSaid = 0;
    m_trace.m_onSaid = [&](const std::string&) {
        EXPECT_EQ(SSOInitPackage(), 100U);
        EXPECT_EQ(SSOTermPackage(), 100U);
        HarrowLogSetSink(nullptr, nullptr, 0);
        ++nSaid;
    };
    Key key;
    EXPECT_EQ(Start(key), "1|#|from client");
    SetCaching(true);  // starts the update thread, which speaks too
    EXPECT_EQ(SSOTermPackage(), 0U);
    EXPECT_TRUE(m_trace.Said({"GetHandler() -- Looking for a", "run() -- Thread starting up.", "run() -- Thread st"}));
    EXPECT_GT(nSaid, 3);
    m_trace.m_onSaid = [](const std::string&) {};
    EXPECT_EQ(SSOInitPackage(), 0U);
}

TEST_F(ExportsTest, OneCallAtATimeWorksOnASession) {
    SetCaching(true);
    for (int i = 1; i <= 50; ++i) {
        Key server;
        EXPECT_EQ(Accept(server, "from client"), "1|#|from server");
        std::atomic<int> nAccepted = 0;
        std::array<std::thread, 4> threads;
        for (std::thread& thread : threads) {
            thread = std::thread([&nAccepted, server]() mutable { nAccepted += Accept(server, "") == "2|#|" ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(nAccepted, 1);
    }
    // Who comes too late begins a new login, which lacks its token.
    Key late;
    EXPECT_EQ(Accept(late, ""), "100|null|");
    EXPECT_TRUE(m_trace.Said({"NULL input buffer", "0-length input buffer"}));
}

}  // namespace
}  // namespace morwen
