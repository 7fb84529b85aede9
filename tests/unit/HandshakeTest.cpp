// The steps of a Kerberos login, and who logged on.
#include <set>

#include "fakes/HandshakeTest.h"
#include "handlers/kerberos/LogonInformation.h"
#include "handlers/kerberos/SSPISession.h"

namespace morwen {
namespace {

using Texts = std::vector<std::string>;

class PoorHandler : public KerberosSSPIHandler {
    uint8_t* AllocateBuffer(uint64_t) override { throw SSOException(SSOException::OutOfMemory()); }
};

TEST_F(HandshakeTest, RoundsOfBothSides) {
    for (const bool bClient : {true, false}) {
        const std::string call = bClient ? "InitializeSecurityContextW" : "AcceptSecurityContext";
        m_fake.Script(call, {SEC_I_CONTINUE_NEEDED, "one"});
        m_fake.Script(call, {SEC_I_CONTINUE_NEEDED, std::nullopt});  // the package does not touch the output
        m_fake.Script(call, {SEC_E_OK, ""});
        const SSOSessionPtr pSession = Session();
        EXPECT_EQ(Step(bClient, pSession, "a"), "1=one");
        EXPECT_EQ(Step(bClient, pSession, "bc"), "1=" + std::string(64, '\0'));
        EXPECT_EQ(Step(bClient, pSession, "def"), bClient ? "0=" : "1=");
        const std::string fixed =
            bClient ? ", target http/server, flags 3, reserved 00, drep 16, input " : ", flags 2, drep 16, input ";
        EXPECT_EQ(m_fake.Log(call), (Texts{"first" + fixed + (bClient ? "none" : "[0:2:a]") + ", output [0:2:64]",
                                           "later" + fixed + "[0:2:bc], output [0:2:64]",
                                           "later" + fixed + "[0:2:def], output [0:2:64]"}));
        EXPECT_TRUE(m_trace.Said({bClient ? "ssoplugin: KerberosSSPIHandler::InitializeContext() -- Pass 2" : ""}));
        EXPECT_TRUE(bClient || Step(bClient, pSession, "") == "2");
    }
}

TEST_F(HandshakeTest, EveryStatusOfEachSide) {
    const std::string failure = "InitializeContext() -- Failure in InitializeSecurityContext(). Error ";
    const std::string accepting = "AcceptContext() -- Failure in AcceptSecurityContext(). Error ";
    const struct {
        SECURITY_STATUS m_nStatus;
        std::string m_client, m_clientSays, m_server, m_serverSays;
    } aCases[] = {
        {SEC_E_OK, "0", "", "1", ""},
        {SEC_I_CONTINUE_NEEDED, "1", "", "1", ""},
        {SEC_I_COMPLETE_NEEDED, "100/42254", failure + "590611: The fake failed.", "0", ""},
        {SEC_I_COMPLETE_AND_CONTINUE, "100/42254", failure, "0", ""},
        {SEC_E_LOGON_DENIED, "3/50054", "Context() -- Logon denied.", "3/61215", "AcceptContext() -- Logon denied."},
        {SEC_E_WRONG_PRINCIPAL, "100/61214", "Mutual authentication failed.", "100/42254", accepting},
        {SEC_E_INSUFFICIENT_MEMORY, "106/42502", failure, "106/42502", "AcceptContext() -- Out of memory!"},
        {SECURITY_STATUS{0x00090320}, "100/42254", failure, "100/42254", accepting},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(test.m_nStatus);
        // A failing package may make a context and a token all the same; neither is lost.
        m_fake.Script("InitializeSecurityContextW", {test.m_nStatus, "t", FakeAnswer::kAlways});
        m_fake.Script("AcceptSecurityContext", {test.m_nStatus, "t", FakeAnswer::kAlways});
        EXPECT_EQ(Step(true, Session(), ""), test.m_client + "=t");
        EXPECT_TRUE(m_trace.Said({test.m_clientSays}));
        const SSOSessionPtr pServer = Session();
        EXPECT_EQ(Step(false, pServer, "x"), test.m_server + "=t");
        EXPECT_TRUE(m_trace.Said({test.m_serverSays}));
        // Nothing more from the client ends a login that is complete, and no other has a context to give away.
        const bool bComplete = test.m_nStatus == SEC_E_OK || test.m_server == "0";
        EXPECT_EQ(Step(false, pServer, ""), bComplete ? "2" : "100/42254");
        EXPECT_EQ(Thrown([&] { return pServer->GetStaticToken(); }), bComplete ? "" : "100/42254");
    }
}

TEST_F(HandshakeTest, WhatIsRefusedBeforeThePackageIsAsked) {
    const SSOHandlerPtr pOther = SSOHandlerFactory::instance()->GetHandler(u"THREADTOKEN");
    const SSOSessionPtr pNone = m_pHandler->CreateSession(nullptr), pFirst = Session(), pSecond = Session();
    const SSOSessionPtr pForeign = pOther->CreateSession(nullptr);
    const SSOCredentialsPtr pGood = m_pHandler->CreateCredentials({}, {}, SSOHandler::kBoth);
    EXPECT_EQ(Step(true, pSecond, ""), "1=from client");
    const auto* const pByte = reinterpret_cast<const uint8_t*>("x");
    const std::string both = "Wrong type of SSOCredentialsPtr", wrong = "Wrong type of SSOSessionPtr";
    const struct {
        bool m_bClient;
        SSOCredentialsPtr m_pCredentials;
        SSOSessionPtr m_pSession;
        const uint8_t* m_pvInput;
        uint64_t m_nInput;
        std::string m_thrown, m_says;
        bool m_bBuffer;  // the caller has one to free
    } aCases[] = {
        {true, nullptr, pFirst, nullptr, 0, "100/42254", "InitializeContext() -- " + both + " passed in.", false},
        {true, pGood, pForeign, nullptr, 0, "100/42254", "InitializeContext() -- " + wrong + " passed in.", false},
        {true, pGood, nullptr, nullptr, 0, "100/42254", "InitializeContext() -- " + wrong + " passed in.", false},
        {true, pGood, pNone, nullptr, 0, "100/61214", "InitializeContext() -- Missing SPN!", false},
        {true, pGood, pSecond, nullptr, 1, "100/42254", "NULL input buffer on second pass. (i_pvBuffer)", true},
        {true, pGood, pSecond, pByte, 0, "100/42254", "0-length input buffer on second pass. (i_nBufferSize)", true},
        {true, pGood, pSecond, pByte, uint64_t{1} << 32, "100/42254", "", true},
        {false, nullptr, pFirst, pByte, 1, "100/42254", "AcceptContext() -- " + both + " passed in.", false},
        {false, pGood, pForeign, pByte, 1, "100/42254", "AcceptContext() -- " + wrong + " passed in.", false},
        {false, pGood, pFirst, nullptr, 1, "100/42254", "AcceptContext() -- NULL input buffer. (i_pvBuffer)", false},
        {false, pGood, pFirst, pByte, 0, "100/42254", "AcceptContext() -- 0-length input buffer.. (i_nBu", false},
        {false, pGood, pFirst, pByte, uint64_t{1} << 32, "100/42254", "", false},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        uint8_t* pvOutput = nullptr;
        uint64_t nOutput = 0;
        EXPECT_EQ(Thrown([&] {
                      return test.m_bClient
                                 ? m_pHandler->InitializeContext(test.m_pCredentials, test.m_pSession, test.m_pvInput,
                                                                 test.m_nInput, &pvOutput, &nOutput)
                                 : m_pHandler->AcceptContext(test.m_pCredentials, test.m_pSession, test.m_pvInput,
                                                             test.m_nInput, &pvOutput, &nOutput, false, m_information);
                  }),
                  test.m_thrown);
        EXPECT_TRUE(m_trace.Said({test.m_says}));
        EXPECT_EQ(pvOutput != nullptr, test.m_bBuffer);
        m_pHandler->FreeBuffer(pvOutput);
        EXPECT_EQ(m_trace.Contains("FreeBuffer() -- input buffer is NULL"), !test.m_bBuffer);
    }
    EXPECT_EQ(m_fake.Log("InitializeSecurityContextW").size() + m_fake.Log("AcceptSecurityContext").size(), 1U);
    EXPECT_EQ(Thrown([&] { return GetLogonInformation(pForeign, m_information), 0; }), "100/42254");
    EXPECT_TRUE(m_trace.Said({"GetLogonInformation() -- " + wrong + " passed in."}));
}

TEST_F(HandshakeTest, Buffers) {
    // Zeros again, whoever wrote into them: a step that succeeds, one that fails, and somebody who says nothing.
    const uint64_t nSize = m_pHandler->GetMaxTokenSize();
    m_fake.Script("AcceptSecurityContext", {SEC_E_OK, "token"});
    EXPECT_EQ(Step(false, Session(), "x"), "1=token");
    m_fake.Script("AcceptSecurityContext", {SEC_E_LOGON_DENIED, "token"});
    EXPECT_EQ(Step(false, Session(), "x").substr(0, 2), "3/");
    for (int nRound = 0; nRound < 2; ++nRound) {
        uint8_t* const pBuffer = m_pHandler->AllocateBuffer(nSize);
        EXPECT_TRUE(std::all_of(pBuffer, pBuffer + nSize, [](uint8_t nByte) { return nByte == 0; }));
        std::fill_n(pBuffer, nSize, uint8_t{0xAA});
        m_pHandler->FreeBuffer(pBuffer);
    }
    // A block that came back is lent again, for its own size and to one borrower.
    uint8_t* const pFirst = m_pHandler->AllocateBuffer(nSize);
    uint8_t* const pLarger = m_pHandler->AllocateBuffer(nSize + 1);
    m_pHandler->FreeBuffer(pFirst);
    uint8_t* const aBlocks[] = {m_pHandler->AllocateBuffer(nSize + 1), m_pHandler->AllocateBuffer(nSize),
                                m_pHandler->AllocateBuffer(nSize), pLarger};
    EXPECT_EQ(std::set<uint8_t*>(std::begin(aBlocks), std::end(aBlocks)).size(), std::size(aBlocks));
    EXPECT_EQ(aBlocks[1], pFirst);
    for (uint8_t* const pBlock : aBlocks) {
        m_pHandler->FreeBuffer(pBlock);
    }
    EXPECT_EQ(Thrown([&] { return m_pHandler->AllocateBuffer(UINT64_MAX / 4); }), "106/42502");
    m_pHandler = MakeCounted<PoorHandler>();
    EXPECT_EQ(Step(true, Session(), "") + Step(false, Session(), "x"), "106/42502106/42502");
    EXPECT_TRUE(m_trace.Said({"AllocateBuffer() -- Out of memory. (pvBuff)", "InitializeContext() -- Out of memory",
                              "AcceptContext() -- Out of memory"}));
}

// ---- Who logged on ----

TEST_F(HandshakeTest, LogonInformationOnEveryWay) {
    using Answers = std::vector<std::pair<const char*, SECURITY_STATUS>>;
    constexpr SECURITY_STATUS kNo = SEC_E_UNSUPPORTED_FUNCTION;
    const auto nShort = static_cast<SECURITY_STATUS>(ERROR_INSUFFICIENT_BUFFER);
    const Answers::value_type ask = {"OpenContextToken", kNo};  // only an impersonating thread can be asked
    const Answers::value_type nobody = {"OpenThreadToken", static_cast<SECURITY_STATUS>(ERROR_NO_TOKEN)};
    const Answers::value_type noThread = {"OpenThreadToken", 5};
    const Answers::value_type noInformation = {"GetTokenInformation", 5};
    const Answers::value_type tooShort = {"GetTokenInformation", nShort};
    const Answers::value_type noRevert = {"RevertSecurityContext", kNo};
    const Answers::value_type noSelf = {"RevertToSelf", 5};
    const std::string tooSmall = "dwRequiredBufferSize > SSPI_DEFAULT_USER_DATA_BUFFER_SIZE";
    const struct {
        Answers m_answers;
        std::string m_result, m_says;
        std::string m_switches;  // how often impersonated, reverted, reverted to self, closed
    } aCases[] = {
        {{}, "1", "GetLogonInformation() -- User's SID is S-1-5-18", "0001"},
        {{ask}, "1", "GetLogonInformation() -- Group's SID is S-1-5-32", "1101"},
        {{{"OpenContextToken", 5}}, "100/61212", "OpenContextToken() failed: Error 5: The fake failed.", "0000"},
        {{ask, {"ImpersonateSecurityContext", kNo}}, "100/61212", "Could not impersonate.", "1000"},
        {{ask, noThread},
         "100/61212",
         "Whom the thread acts as cannot be found out: Error 5: The fake failed.",
         "0000"},
        {{ask, nobody, noThread}, "100/42254", "OpenThreadToken() failed: Error 5: The fake failed.", "1100"},
        {{ask, noInformation}, "100/42254", "GetTokenInformation failed (first try).", "1101"},
        {{{"GetTokenInformation", 0}, noInformation}, "100/42254", "(first try).", "0001"},
        {{tooShort}, "1", tooSmall, "0001"},
        {{ask, tooShort, noInformation}, "100/42254", tooSmall, "1101"},
        {{ask, noRevert, {"CloseHandle", 5}}, "1", "CloseHandle(hUser)", "1111"},
        {{ask, noRevert, noSelf}, "100/61212", "RevertToSelf()", "1111"},
        {{ask, noInformation, noRevert, noSelf}, "100/61212", "RevertToSelf()", "1111"},
        {{ask, nobody, noThread, noRevert, noSelf}, "100/61212", "RevertToSelf()", "1110"},
    };
    m_bWantInformation = true;
    m_fake.m_groupSids = Texts(2, FakePlatform::MakeSid({0, 0, 0, 0, 0, 5}, {32}));
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        for (const auto& [pszCall, nStatus] : test.m_answers) {
            m_fake.Script(pszCall, {nStatus});
        }
        const auto count = [this] {
            return 1000 * m_fake.Log("ImpersonateSecurityContext").size() +
                   100 * m_fake.Log("RevertSecurityContext").size() + 10 * m_fake.Log("RevertToSelf").size() +
                   m_fake.Log("CloseHandle").size();
        };
        const size_t nBefore = count();
        m_information = Parameters();
        EXPECT_EQ(Step(false, Session(), "x"), test.m_result + "=from server");
        EXPECT_EQ(count() - nBefore, std::stoul(test.m_switches));
        EXPECT_TRUE(m_trace.Said({test.m_says}));
        EXPECT_EQ(m_fake.IsImpersonating(), test.m_says == "RevertToSelf()");
        Platform::Tokens().RevertToSelf();
        EXPECT_EQ(Information(), test.m_result == "1" ? "S-1-5-18 S-1-5-32;S-1-5-32;" : "none none");  // all or nothing
    }
    EXPECT_EQ(m_fake.Log("OpenThreadToken").front(), "this thread, access 12, as self");
    EXPECT_EQ(m_fake.Log("OpenThreadToken")[1], "this thread, access 8, as self");
    m_fake.Script("OpenContextToken", {SEC_E_OK, "", FakeAnswer::kNever});
    EXPECT_EQ(Step(false, Session(), "x"), "100/42254=from server");
    EXPECT_TRUE(m_trace.Said({"hUser"}));
    const std::vector<DWORD> many(15, 1234567890);
    m_fake.m_groupSids = Texts(200, FakePlatform::MakeSid({0, 0, 0, 0, 0, 5}, many));  // more than first buffers hold
    EXPECT_EQ(Step(false, Session(), "x"), "1=from server");
    EXPECT_EQ(m_fake.Log("GetTokenInformation").back(), "2, length 16808");
    std::string expected = "S-1-5-18 ";
    for (size_t i = 0; i < 200 * many.size(); ++i) {
        expected +=
            (i % many.size() == 0 ? "S-1-5" : "") + std::string("-1234567890") + (i % many.size() == 14 ? ";" : "");
    }
    EXPECT_EQ(Information(), expected);
    m_fake.m_userSid[0] = 2;  // no such revision
    EXPECT_EQ(Step(false, Session(), "x"), "100/42254=from server");
}

// As on Windows, where a thread that acts as a user has that user's credentials, and only a thread can be asked who it
// is.
TEST_F(HandshakeTest, AnActingThreadAcceptsAsTheServiceAndStaysWhoItIs) {
    const SSOSessionPtr pEarlier = Session();
    EXPECT_EQ(Step(false, pEarlier, "x"), "1=from server");
    CtxtHandle* const pUser = Harrowlib201::CountedCast<SSPISession>(pEarlier)->GetContext();
    using Answers = std::vector<std::pair<const char*, SECURITY_STATUS>>;
    const Answers::value_type ask = {"OpenContextToken", SEC_E_UNSUPPORTED_FUNCTION};
    const struct {
        Answers m_answers;
        std::string m_result;
        bool m_bActing;
    } aCases[] = {
        {{ask}, "1=from server", true},
        {{{"AcquireCredentialsHandleW", SEC_E_NO_CREDENTIALS}}, "100/61215", true},
        {{{"RevertToSelf", 5}}, "100/61212", true},
        {{{"ImpersonateLoggedOnUser", 5}}, "100/61212", false},
        {{ask, {"ImpersonateLoggedOnUser", 0}, {"ImpersonateLoggedOnUser", 5}}, "100/61212=from server", false},
    };
    m_bWantInformation = true;
    m_nCredentials = SSOHandler::kInbound;
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        EXPECT_EQ(Platform::Sspi().ImpersonateSecurityContext(pUser), SEC_E_OK);
        for (const auto& [pszCall, nStatus] : test.m_answers) {
            m_fake.Script(pszCall, {nStatus});
        }
        EXPECT_EQ(Step(false, Session(), "x"), test.m_result);
        EXPECT_EQ(m_fake.IsImpersonating(), test.m_bActing);
    }
    Platform::Tokens().RevertToSelf();
    for (const std::string& acquired : m_fake.Log("AcquireCredentialsHandleW")) {
        EXPECT_EQ(acquired.find("impersonating"), std::string::npos);
    }
}

TEST_F(HandshakeTest, ADirectorysWordMayBeRequired) {
    m_pHandler->InitHandler(Parameters(Chain({{u"SSPI_REQUIRE_LOGON_INFO", SSO_PARAMETER_BOOL, u"1"}})));
    const std::string ofDirectory = m_fake.m_userSid;
    const std::string ofUnix = FakePlatform::MakeSid({0, 0, 0, 0, 0, 22}, {1, 7});
    const std::tuple<SECURITY_STATUS, std::string, const char*> kCases[] = {
        {SEC_E_OK, ofDirectory, "1=from server"},
        {SEC_E_OK, ofUnix, "3/61215=from server"},
        {SEC_E_UNSUPPORTED_FUNCTION, ofUnix, "1=from server"},  // where users come from directories only
        {SEC_E_NO_IMPERSONATION, ofDirectory, "3/61215=from server"},
        {SEC_E_INSUFFICIENT_MEMORY, ofDirectory, "106/42502=from server"},
    };
    for (const auto& [nStatus, sid, pszResult] : kCases) {
        m_fake.Script("OpenContextToken", {nStatus});
        m_fake.m_userSid = sid;
        const SSOSessionPtr pSession = Session();
        EXPECT_EQ(Step(false, pSession, "x"), pszResult);
        EXPECT_EQ(Step(false, pSession, "") == "2", std::string(pszResult).starts_with("1="))
            << "nobody who is refused is let in later";
    }
}

TEST_F(HandshakeTest, SidsAsText) {
    const std::vector<DWORD> many(20, 4294967295U);
    std::string text;
    for (size_t i = 0; i < many.size(); ++i) {
        text += "-4294967295";
    }
    const std::pair<std::string, std::string> aCases[] = {
        {FakePlatform::MakeSid({0, 0, 0, 0, 0, 0}, {}), "S-1-0"},
        {FakePlatform::MakeSid({1, 2, 3, 4, 5, 6}, {7, 8}), "S-1-0x010203040506-7-8"},
        {FakePlatform::MakeSid({0, '\xAB', 0, 0, 0, 1}, {0}), "S-1-0x00ab00000001-0"},
        {FakePlatform::MakeSid({0, 0, '\xFF', '\xFE', 3, 4}, {1}), "S-1-4294836996-1"},
        {FakePlatform::MakeSid({0, 0, 0, 0, 0, 5}, {many.begin(), many.begin() + 15}), "S-1-5" + text.substr(0, 165)},
        {FakePlatform::MakeSid({0, 0, 0, 0, 0, 5}, many), "S-1-5" + text},
    };
    for (auto [sid, expected] : aCases) {
        SWCharString ssText;
        SIDToSString(sid.data(), ssText);
        EXPECT_EQ(Utf8(ssText), expected);
        EXPECT_EQ(m_trace.Contains("SIDToSString() -- Buffer too small.  Reallocating."), expected.size() > 210);
    }
}

}  // namespace
}  // namespace morwen
