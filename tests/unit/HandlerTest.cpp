// The handlers: which there are, their settings, their credentials, and the texts of errors.
#include "fakes/PlatformTest.h"
#include "handlers/SystemErrorText.h"
#include "handlers/kerberos/KerberosSSPIHandler.h"

namespace morwen {
namespace {

using HandlerTest = PlatformTest;
using Texts = std::vector<std::string>;

constexpr const char16_t* kExpiry = u"SSPI_CTXT_CACHE_EXPIRY";
constexpr const char16_t* kCaching = u"SI_CACHE_SECCONTEXT";
constexpr const char16_t* kRenewals = u"CONTEXT_RENEWALS_ALLOWED";

SSOHandlerPtr Find(const char16_t* i_pszType) {
    return SSOHandlerFactory::instance()->GetHandler(i_pszType);
}

TEST_F(HandlerTest, FactoryKeepsOneHandlerOfEachType) {
    m_fake.Script("QuerySecurityPackageInfoW", {SEC_E_SECPKG_NOT_FOUND});
    m_fake.Script("QuerySecurityPackageInfoW", {SEC_E_OK, "", FakeAnswer::kNever});
    m_fake.Script("FreeContextBuffer", {SEC_E_INVALID_HANDLE});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Thrown([] { return Find(u"SSPI"); }), "100/61213/Kerberos/SSPI");
    }
    EXPECT_TRUE(m_trace.Said({"QuerySecurityPackageInfo() failed!", "pPackageInfo", "Info() returned NULL!"}));
    const SSOHandlerPtr pSspi = Find(u"SSPI");  // the failures were not kept
    EXPECT_TRUE(m_trace.Said({"statFree == SEC_E_OK"}));
    EXPECT_EQ(m_fake.Log("QuerySecurityPackageInfoW"), Texts(3, "Kerberos"));
    EXPECT_TRUE(Find(u"SSPI") == pSspi && !(Find(u"THREADTOKEN") == pSspi));
    for (const char16_t* pszType : {u"sspi", u"SSPI ", u" THREADTOKEN", u""}) {
        const std::string type = Utf8(SWCharString(pszType));
        EXPECT_EQ(Thrown([=] { return Find(pszType); }), "100/61216/" + type);
        EXPECT_TRUE(m_trace.Said({"SSOHandlerFactory::GetHandler() -- Unsupported type: " + type}));
    }
    SSOHandlerFactory::instance()->ReleaseHandlers();
    EXPECT_FALSE(Find(u"SSPI") == pSspi);
}

TEST_F(HandlerTest, SettingsOneAfterTheOther) {
    const struct {
        std::vector<Chain::Element> m_elements;
        std::string m_thrown, m_settings, m_says;  // caching/expiry/renewals afterwards
    } aCases[] = {
        {{}, "", "1/0/1", ""},
        {{{kExpiry, 2, u"600"}}, "", "1/600000/1", "InitHandler() -- Setting cache timeout to 600"},
        {{{kExpiry, 2, u"9223372036854774"}}, "", "1/9223372036854774000/1", ""},
        {{{kExpiry, 2, u"9223372036854775"}}, "", "1/-1000/1", "lExpiryTime < (INT64_MAX / 1000)"},
        {{{kExpiry, 2, u"0"}}, "", "1/0/1", ""},
        {{{kExpiry, 2, u"-5"}}, "", "1/-5000/1", ""},
        {{{kCaching, 3, u"0"}}, "", "0/-5000/1", "Turning off caching of contexts."},
        {{{kRenewals, 3, u"0"}}, "", "0/-5000/0", "Disabling renewals of cached security contexts."},
        {{{kCaching, 2, u"1"}, {kExpiry, 2, u"9"}}, "100/42038/SI_CACHE_SECCONTEXT", "0/-5000/0", "expiry flag."},
        {{{kRenewals, 3, u"yes"}, {kCaching, 3, u"1"}}, "100/42254", "0/-5000/0", "getting the context renewal flag."},
        {{{kExpiry, 1, u"9"}, {kCaching, 3, u"1"}}, "100/42038/SSPI_CTXT_CACHE_EXPIRY", "0/-5000/0", "expiry time."},
        {{{kCaching, 3, u"1"}}, "", "1/-5000/0", "Turning on caching of contexts."},
        {{{kRenewals, 3, u"1"}}, "", "1/-5000/1", "Allowing renewals of cached security contexts."},
    };
    const auto pHandler = Harrowlib201::MakeCounted<KerberosSSPIHandler>();
    for (const auto& test : aCases) {
        SCOPED_TRACE(test.m_settings + test.m_says);
        EXPECT_EQ(Thrown([&] { return pHandler->InitHandler(Parameters(Chain(test.m_elements))), 0; }), test.m_thrown);
        EXPECT_EQ(std::to_string(pHandler->IsCachingOn()) + "/" +
                      std::to_string(pHandler->GetCacheExpiry().GetTotalMilliseconds()) + "/" +
                      std::to_string(pHandler->AreRenewalsAllowed()),
                  test.m_settings);
        const std::string why = test.m_thrown == "100/42254" ? "Could not get a boolean" : "p.m_eType ==";
        EXPECT_TRUE(m_trace.Said({test.m_says, test.m_thrown.empty() ? "" : why}));
    }
    EXPECT_EQ(Thrown([&] { return pHandler->GetSPN(); }), "100/42254");
    EXPECT_TRUE(m_trace.Said({"ssoplugin: KerberosSSPIHandler::GetSPN() -- Could not determine spn!"}));
    pHandler->InitHandler(Parameters(SpnChain()));
    EXPECT_EQ(Utf8(pHandler->GetSPN()), "http/server");
    EXPECT_EQ(Find(u"THREADTOKEN")->GetCacheExpiry().GetTotalMilliseconds(), 86400000);
}

TEST_F(HandlerTest, CredentialsByNameTypeAndStatus) {
    const struct {
        const char16_t* m_pszUser;
        uint32_t m_nType;
        SECURITY_STATUS m_nStatus;
        std::string m_thrown, m_call, m_says;
    } aCases[] = {
        {u"", 0, 0, "", "use 1, identity none", "Called for SSO."},
        {u"CORP\\alice", 1, 0, "", "use 2, identity CORP|alice|hunter2|2", "Username = CORP\\alice, Password = >>not"},
        {u"CORP\\sub\\alice", 2, 0, "", "use 3, identity CORP|sub\\alice|hunter2|2", ""},
        {u"\\alice", 1, 0, "", "use 2, identity |alice|hunter2|2", ""},
        {u"CORP\\", 1, 0, "", "use 2, identity CORP||hunter2|2", ""},
        {u"alice@CORP", 1, 0, "100/47702", "", "alice@CORP is not the right format for the username."},
        {u"CORP\\alice", 3, 0, "100/42254", "", "Unexpected credential type requested!"},
        {u"", 1, SEC_E_INSUFFICIENT_MEMORY, "106/42502", "use 2, identity none", "Out of memory in Acq"},
        {u"", 1, SEC_E_SECPKG_NOT_FOUND, "100/61213/Kerberos/SSPI", "use 2, identity none", "Could not load the Kere"},
        {u"", 1, SEC_E_NOT_OWNER, "100/61215", "use 2, identity none", "Credentials error.  Is the calling thread"},
        {u"", 1, SEC_E_UNKNOWN_CREDENTIALS, "100/61215", "use 2, identity none", "Credentials error.  Is"},
        {u"", 1, SEC_E_NO_CREDENTIALS, "100/61215", "use 2, identity none", "Credentials error.  Is"},
        {u"", 1, SEC_E_INTERNAL_ERROR, "100/61215", "use 2, identity none", "Handle(): Error -2146893052: The fake f"},
    };
    Texts calls;
    for (const auto& test : aCases) {
        SCOPED_TRACE(test.m_thrown + test.m_call + test.m_says);
        if (test.m_nStatus != 0) {  // with a handle all the same, which must not be lost
            m_fake.Script("AcquireCredentialsHandleW", {test.m_nStatus, "", FakeAnswer::kAlways});
        }
        EXPECT_EQ(Thrown([&] { return Find(u"SSPI")->CreateCredentials(test.m_pszUser, u"hunter2", test.m_nType); }),
                  test.m_thrown);
        if (!test.m_call.empty()) {
            calls.push_back("none, Kerberos, " + test.m_call);
        }
        EXPECT_EQ(m_fake.Log("AcquireCredentialsHandleW"), calls);
        EXPECT_FALSE(m_trace.Contains("hunter2"));
        EXPECT_TRUE(m_trace.Said({test.m_says, *test.m_pszUser == u'\0' ? "i_ssPassword.isEmpty()" : ""}));
    }
    for (const SECURITY_STATUS nStatus : {SEC_E_INVALID_HANDLE, SEC_E_INTERNAL_ERROR}) {
        m_fake.Script("FreeCredentialsHandle", {nStatus});
        Find(u"SSPI")->CreateCredentials({}, {}, SSOHandler::kInbound);
    }
    EXPECT_TRUE(m_trace.Said({"FreeCredentialsHandle failed: SEC_E_INVALID_HANDLE",
                              "FreeCredentialsHandle failed: Unknown error: -2146893052"}));
}

TEST_F(HandlerTest, ErrorTextsAreTrimmedAndGivenBack) {
    EXPECT_EQ(Utf8(GetErrorText(SEC_E_OK)), "");
    EXPECT_EQ(Utf8(GetErrorText(SEC_E_INVALID_TOKEN)), "Error -2146893048: The fake failed.");
    m_fake.m_systemText.clear();
    EXPECT_EQ(Utf8(GetErrorText(5)), "Error 5: ???");
    EXPECT_EQ(m_fake.Log("FormatMessageW"), Texts(2, "flags 4864, language 1024, size 1024"));
}

}  // namespace
}  // namespace morwen
