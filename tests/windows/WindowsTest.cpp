// Logons on the system's own Kerberos, both sides in this process; the identity of threads; the library as a host finds
// it; and, on the test package, the whole life of a context. Runs inside a realm.
#include <thread>

#include "fakes/TraceCapture.h"
#include "handlers/StaticToken.h"
#include "platform/OsTypes.h"
#include "realm/Login.h"

namespace morwen {
namespace {

using Harrowlib201::SDateTime;
using Harrowlib201::STimeSpan;

template <class Function>
Function* Find(HMODULE i_hLibrary, const char* i_pszName) {
    return reinterpret_cast<Function*>(reinterpret_cast<intptr_t>(GetProcAddress(i_hLibrary, i_pszName)));
}

bool ThreadHasToken() {
    HANDLE hToken = nullptr;
    return OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken) && CloseHandle(hToken);
}

// Impersonates and reverts: both codes, and "acts" between them if the thread had a token, and no other one.
std::string Switch(const HostText& i_key) {
    std::string text = std::to_string(SSOImpersonate(i_key.c_str()));
    text += ThreadHasToken() ? " acts " : " ";
    std::thread([] { EXPECT_FALSE(ThreadHasToken()); }).join();
    text += std::to_string(SSORevert(i_key.c_str()));
    return text + (ThreadHasToken() ? " still acts" : "");
}

class WindowsTest : public testing::Test {
protected:
    static void Start(const char* i_pszKey, uint32_t i_nType, const wchar_t* i_pszValue) {
        const HostText spn = Wide(SSO_KEY_SPN), key = Wide(i_pszKey);
        ParasSeq renewal = {spn.c_str(), SSO_PARAMETER_STRING, L"fwd/localhost", nullptr};
        const ParasSeq setting = {key.c_str(), i_nType, i_pszValue, &renewal};
        ASSERT_EQ(SSOInitPackage(), SSO_OK);
        ASSERT_EQ(SSOInitProvider(L"SSPI", &setting), SSO_OK);
    }
    void TearDown() override {
        EXPECT_EQ(SSOTermPackage(), SSO_OK);
        EXPECT_TRUE(m_trace.Said({}));
    }
    TraceCapture m_trace;
};

constexpr auto kNot =
    Information::NotWanted;  // Wine's Kerberos cannot impersonate, so it cannot tell who has logged on

class Logon : public WindowsTest {
protected:
    void SetUp() override { Start(SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, L"0"); }
};

TEST_F(Logon, ToServicesTrustedForDelegationAndOthersAndNone) {
    using Case = std::pair<const char*, const char*>;
    for (const auto& [pszService, pszVerdict] :
         {Case{"morwen/localhost", "1,1,0,2"}, Case{"fwd/localhost", "1,1,0,2"}, Case{"nobody/localhost", "100/42254"},
          Case{"", "100/61214"}, Case{"a b c", "100/42254"}}) {
        EXPECT_EQ(LogOn({"", "", pszService}, kNot).m_verdict, pszVerdict) << pszService;
        EXPECT_EQ(LogOn({"", "", pszService, true}, kNot).m_verdict, pszVerdict) << pszService;  // by SPNEGO
    }
}

TEST_F(Logon, TheIdentityOfAThreadIsKept) {
    const auto capture = [] {
        SSOChar* pszKey = nullptr;
        EXPECT_EQ(SSOAcquireCurrentSecurityContext(L"THREADTOKEN", nullptr, &pszKey), SSO_OK);
        const HostText key = pszKey;
        SSOFreeString(pszKey);
        return key;
    };
    const HostText ofProcess = capture();
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    const HostText ofThread = capture();
    ASSERT_TRUE(RevertToSelf());
    ASSERT_TRUE(ImpersonateSelf(SecurityIdentification));
    SSOChar* pszNone = nullptr;
    EXPECT_EQ(SSOAcquireCurrentSecurityContext(L"THREADTOKEN", nullptr, &pszNone), SSO_ERROR);
    ASSERT_TRUE(RevertToSelf());
    for (const HostText& key : {ofProcess, ofThread}) {
        EXPECT_EQ(Switch(key), "0 acts 0");
        EXPECT_EQ(SSOReleaseSecurityContext(key.c_str()), SSO_OK);
        EXPECT_EQ(Switch(key), "100 100");
    }
}

// By ordinals too, and not one more; and gone when it is let go, also after its thread has run.
TEST(Library, IsFoundUsedLetGoAndFoundAgain) {
    const auto freeSlot = [] {
        const DWORD nSlot = TlsAlloc();
        return TlsFree(nSlot) ? nSlot : 0;
    };
    const DWORD nSlot = freeSlot();
    const HostText key = Wide(SSO_KEY_CACHE_CONTEXTS);
    const ParasSeq keep = {key.c_str(), SSO_PARAMETER_BOOL, L"1", nullptr};
    for (int nRound = 0; nRound < 50; ++nRound) {
        const HMODULE hLibrary = LoadLibraryW(L"morwenplugin.dll");
        for (WORD nOrdinal = 0; nOrdinal <= 22; ++nOrdinal) {
            const bool bIs = nOrdinal >= 1 && nOrdinal <= 21;
            ASSERT_EQ(Find<void()>(hLibrary, MAKEINTRESOURCEA(nOrdinal)) != nullptr, bIs) << nOrdinal;
        }
        EXPECT_EQ(Find<decltype(SSOInitPackage)>(hLibrary, MAKEINTRESOURCEA(1))(), SSO_OK);
        EXPECT_EQ(Find<decltype(SSOInitProvider)>(hLibrary, "SSOInitProvider")(L"SSPI", &keep), SSO_OK);  // a thread
        EXPECT_EQ(Find<void()>(hLibrary, "SSOTermPackage"), Find<void()>(hLibrary, MAKEINTRESOURCEA(2)));
        EXPECT_EQ(Find<decltype(SSOTermPackage)>(hLibrary, MAKEINTRESOURCEA(2))(), SSO_OK);
        EXPECT_TRUE(FreeLibrary(hLibrary));
        ASSERT_EQ(GetModuleHandleW(L"morwenplugin.dll"), nullptr);
    }
    EXPECT_LE(freeSlot(), nSlot + 50);  // the compiler's runtime keeps one slot of each load: docs/windows.md
}

class TestPackageOnly : public WindowsTest {
protected:
    void SetUp() override {
        SetLifespan(3600);
        Start(SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, L"10800");
    }
    static void SetLifespan(LONGLONG i_nSeconds) {
        auto* const pfnSet = Find<void(LONGLONG)>(GetModuleHandleW(L"test_package.dll"), "SetLifespan");
        ASSERT_NE(pfnSet, nullptr) << "the test package is not the one that answers";
        pfnSet(i_nSeconds);
    }
};

// The package reports local time; to be run with TZ set to a zone that has daylight saving.
TEST_F(TestPackageOnly, ALoginIsKeptActsRevertsRenewsAndExpires) {
    TIME_ZONE_INFORMATION zone;
    GetTimeZoneInformation(&zone);
    ASSERT_TRUE(zone.Bias != 0 && zone.DaylightBias != 0) << "TZ is not set to such a zone";
    const LoginResult login = LogOn({"", "", "fwd/localhost"});
    EXPECT_EQ(login.m_verdict, kLoggedOn);
    EXPECT_TRUE(login.m_userSid.starts_with("S-1-5-21-")) << login.m_userSid;
    EXPECT_TRUE(login.m_groupSids.find("S-1-5-32-544;") != std::string::npos) << login.m_groupSids;
    EXPECT_EQ(Switch(Wide(login.m_key)), "0 acts 0");
    ASSERT_EQ(SSOLookupSecurityContext(Wide(login.m_key).c_str()), SSO_OK);
    const StaticTokenPtr pToken(reinterpret_cast<StaticToken*>(std::stoull(login.m_key)));  // a key is an address
    const SDateTime now = SDateTime::GetCurrentDateTime();
    const auto after = [&](int64_t i_nMinutes) { return now + STimeSpan(i_nMinutes * 60000); };
    EXPECT_NEAR(static_cast<double>(pToken->GetTimeToExpiry(now).GetTotalMilliseconds()), 3600e3, 20e3);
    SetLifespan(7200);
    EXPECT_FALSE(pToken->Renegotiate(after(50)));
    auto* const pfnSetLevel = Find<void(int)>(GetModuleHandleW(L"test_package.dll"), "SetLevel");
    pfnSetLevel(SecurityIdentification);
    EXPECT_EQ(Switch(Wide(login.m_key)), "100 0");  // knows the user, and cannot act as that
    EXPECT_FALSE(pToken->Renegotiate(after(58)));
    pfnSetLevel(SecurityImpersonation);
    EXPECT_TRUE(pToken->Renegotiate(after(58)));
    EXPECT_FALSE(pToken->Renegotiate(after(58)));
    EXPECT_EQ(Switch(Wide(login.m_key)), "0 acts 0");
    EXPECT_FALSE(pToken->IsExpired(after(110)));
    EXPECT_TRUE(pToken->IsExpired(after(125)));
    SetLifespan(-1);
    EXPECT_EQ(SSOLookupSecurityContext(Wide(LogOn().m_key).c_str()), SSO_NO_CONTEXT);
}

}  // namespace
}  // namespace morwen
