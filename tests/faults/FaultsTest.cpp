// Does the plug-in keep its promises whichever allocation fails, its own or one of the libraries under it?
//
// Every n-th allocation of an operation fails in turn, n = 1, 2, 3 ... until a pass meets none: alone, and with all
// that follow. Long operations take prime strides unless MORWEN_FAULTS=all.
#include <filesystem>
#include <thread>

#include "faults/AllocationFaults.h"
#include "handlers/StaticToken.h"
#include "realm/KeptContextTest.h"

namespace morwen {
namespace {

using Harrowlib201::SDateTime;

constexpr const SSOChar* kThreadToken = u"" SSO_PROVIDER_THREADTOKEN;
constexpr const char* kNoRecord = "100/none";
constexpr const SSOChar* kKerberos = u"" SSO_PROVIDER_SSPI;
ParasSeq s_spn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"brief/localhost", nullptr};
ParasSeq s_expiry = {u"" SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, u"3600", &s_spn};
const ParasSeq kSettings = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"1", &s_expiry};

std::atomic<int64_t> s_nAhead{0};   // seconds of the core's clock
std::atomic<int64_t> s_nCoarse{0};  // seconds that the idle contexts of libkrb5 seem older

// One pass through an operation: its calls, and what is wrong with them.
class Pass {
public:
    struct Outputs {
        void* m_pvToken = nullptr;
        SSOLength m_nLength = 0;
        SSOChar* m_pszKey = nullptr;
        ParasSeq* m_pChain = nullptr;
    };
    enum class Retry { Works, Pointless };

    // Whether the operation goes on. After a failure nothing fails any more, and what may be tried again succeeds.
    template <class Call>
    bool Step(const char* i_pszStep, uint32_t i_nSuccess, Retry i_eRetry, Call i_call,
              const char* i_pszFailure = "106/42256") {
        uint32_t nCode = Try(i_call);
        if (nCode == i_nSuccess) {
            return true;
        }
        t_fault.m_nLeft = 0;
        const std::string verdict = VerdictOf(nCode);
        Require(t_fault.m_bHit && verdict == i_pszFailure, i_pszStep + (" gives " + verdict));
        if (i_eRetry == Retry::Works) {
            nCode = Try(i_call);
            Require(nCode == i_nSuccess, i_pszStep + (" then gives " + VerdictOf(nCode)));
        }
        return nCode == i_nSuccess;
    }
    void Require(bool i_bFulfilled, const std::string& i_what) { m_wrong += i_bFulfilled ? "" : "; " + i_what; }

    Bytes m_token;  // the newest that were handed out
    HostText m_key;
    std::string m_wrong;

private:
    template <class Call>
    uint32_t Try(Call i_call) {
        Outputs out;
        t_fault.m_bCounted = true;
        const uint32_t nCode = i_call(out);
        t_fault.m_bCounted = false;
        Require(nCode < SSO_DENIED || (!out.m_pvToken && !out.m_nLength && !out.m_pszKey && !out.m_pChain), "outputs");
        if (nCode < SSO_DENIED) {
            const auto* const pToken = static_cast<const uint8_t*>(out.m_pvToken);
            m_token.assign(pToken, pToken + out.m_nLength);
            m_key = out.m_pszKey != nullptr ? out.m_pszKey : m_key;
        }
        SSOFreeBuffer(out.m_pvToken);
        SSOFreeString(out.m_pszKey);
        SSOFreeParameters(out.m_pChain);
        return nCode;
    }
};

using enum Pass::Retry;
using Outputs = Pass::Outputs;

bool LogOn(Pass& io_pass, const SSOChar* i_pszUser, const SSOChar* i_pszPassword) {
    if (!io_pass.Step("start", SSO_CONTINUE, Works, [&](Outputs& o_out) {
            return SSOStartLogin(i_pszUser, i_pszPassword, kKerberos, &s_spn, &o_out.m_pszKey, &o_out.m_pvToken,
                                 &o_out.m_nLength);
        })) {
        return false;
    }
    const HostText clientKey = io_pass.m_key;
    HostText serverKey;
    const auto accept = [&](Outputs& o_out) {
        return SSOAcceptLogin(kKerberos, serverKey.c_str(), io_pass.m_token.data(),
                              static_cast<SSOLength>(io_pass.m_token.size()), &o_out.m_pvToken, &o_out.m_nLength,
                              &o_out.m_pChain, &o_out.m_pszKey);
    };
    if (!io_pass.Step("accept", SSO_CONTINUE, Pointless, accept)) {  // again it would be a replay
        return false;
    }
    serverKey = io_pass.m_key;
    io_pass.Step("continue", SSO_OK, Works, [&, answer = io_pass.m_token](Outputs& o_out) {
        return SSOContinueLogin(clientKey.c_str(), answer.data(), static_cast<SSOLength>(answer.size()),
                                &o_out.m_pvToken, &o_out.m_nLength);
    });
    io_pass.m_token = Bytes();
    return io_pass.Step("close", SSO_ACCEPTED, Pointless, accept);  // a login that is lost on its way is over
}

void UseContext(Pass& io_pass) {
    const HostText key = io_pass.m_key;
    const auto call = [&](const char* i_pszStep, auto i_export) {
        io_pass.Step(i_pszStep, SSO_OK, Works, [&](Outputs&) { return i_export(key.c_str()); });
    };
    call("impersonate", SSOImpersonate);
    call("lookup", SSOLookupSecurityContext);
    call("revert", SSORevert);
    call("associate", [](const SSOChar* i_pszKey) { return SSOAssociateSecurityContext(i_pszKey, u"mine"); });
    io_pass.Step("release", SSO_OK, Works, [](Outputs&) { return SSOReleaseSecurityContext(u"mine"); });
}

void Package(Pass& io_pass) {
    io_pass.Step("term", SSO_OK, Works, [](Outputs&) { return SSOTermPackage(); });
    io_pass.Step(
        "init", SSO_OK, Works, [](Outputs&) { return SSOInitPackage(); }, kNoRecord);
}

void Settings(Pass& io_pass) {
    io_pass.Step("provider", SSO_OK, Works, [](Outputs&) { return SSOInitProvider(kKerberos, &kSettings); });
    io_pass.Step("thread provider", SSO_OK, Works, [](Outputs&) { return SSOInitProvider(kThreadToken, &kSettings); });
    io_pass.Step("required", SSO_OK, Works,
                 [](Outputs& o_out) { return SSOGetRequiredParameters(kKerberos, &o_out.m_pChain); });
    // While a failure is explained its record stays.
    io_pass.Step(
        "message", SSO_OK, Works, [](Outputs& o_out) { return SSOGetMessageContent(42254, &o_out.m_pszKey); },
        kNoRecord);
}

void ThreadToken(Pass& io_pass) {
    io_pass.Step("acquire", SSO_OK, Works, [](Outputs& o_out) {
        return SSOAcquireCurrentSecurityContext(kThreadToken, nullptr, &o_out.m_pszKey);
    });
    UseContext(io_pass);
}

void Tickets(Pass& io_pass) {
    if (LogOn(io_pass, nullptr, nullptr)) {
        UseContext(io_pass);
    }
}

void Password(Pass& io_pass) {
    LogOn(io_pass, u"MORWEN\\alice", u"alice-secret");
}

// As the update thread does it.
void Renewal(Pass& io_pass) {
    if (!LogOn(io_pass, nullptr, nullptr)) {
        return;
    }
    const StaticTokenPtr pToken(reinterpret_cast<StaticToken*>(std::stoull(Narrow(io_pass.m_key.c_str()))));
    s_nAhead = 10 * 60 - 10;
    io_pass.Step(
        "renewal", SSO_OK, Pointless,
        [&](Outputs&) { return pToken->Renegotiate(SDateTime::GetCurrentDateTime()) ? SSO_OK : SSO_ERROR; }, kNoRecord);
    s_nAhead = 0;
}

struct Operation {
    const char* m_pszName;
    void (*m_pfnRun)(Pass& io_pass);
    bool m_bKerberos;  // libkrb5 1.20 crashes when some of its own allocations fail, so only the plug-in's do
    bool m_bCold;  // with new contexts of libkrb5, keys read anew and tickets got anew; what cannot be freed without a
                   // context of libkrb5 may stay
    long m_nStride;
};

class Faults : public testing::TestWithParam<Operation> {
protected:
    static void SetUpTestSuite() {
        static const std::string s_keytab = AddService("-maxlife 10minutes +ok_as_delegate brief/localhost", "brief");
        setenv("KRB5_KTNAME", s_keytab.c_str(), 1);
        RunCommand("cd $MORWEN_REALM_DIR; cp alice.cc alice.cc.first; cp brief brief.first");
        SDateTime::SetClock([]() noexcept { return 1000 * (int64_t{time(nullptr)} + s_nAhead); });
        HarrowLogSetSink([](auto...) {}, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    }
    void SetUp() override {
        if (getuid() != 0) {
            GTEST_SKIP() << "becoming other users needs root";
        }
    }
    std::string Run(bool i_bCold, long i_nWhich, bool i_bFromThenOn) {
        const ThreadState service = CurrentThreadState();
        if (i_bCold) {
            s_nCoarse += 100;
            for (const std::string name : {"alice.cc", "brief"}) {
                std::filesystem::copy_file(RealmPath(name + ".first"), RealmPath(name),
                                           std::filesystem::copy_options::overwrite_existing);
            }
        }
        Pass pass;
        pass.Require(SSOInitPackage() == SSO_OK, "start");
        SSOInitProvider(kKerberos, &kSettings);
        SSOInitProvider(kThreadToken, &kSettings);
        t_fault = {i_nWhich, false, i_bFromThenOn, !GetParam().m_bKerberos, false};
        GetParam().m_pfnRun(pass);
        m_bHit = t_fault.m_bHit;
        pass.Require(CurrentThreadState() == service, "the thread has changed");
        pass.Require(SSOTermPackage() == SSO_OK, "end");
        return pass.m_wrong;
    }
    bool m_bHit = false;
};

TEST_F(Faults, AreReportedWithoutMemory) {
    static constexpr const char* kTexts[] = {
        "ssoplugin: SSOImpl::Initialize() -- Out of memory intializing components!",
        "ssoplugin: SSOImpl::Initialize() -- Out of memory initializing JTC!",
        "ssoplugin: ErrorManager::SetThreadError() -- NULL error struct!",
    };
    static bool s_aSaid[std::size(kTexts)];
    const auto sink = [](uint32_t, const char*, int, const char* i_pszMessage, void*) {
        for (size_t i = 0; i < std::size(kTexts); ++i) {
            s_aSaid[i] |= std::string_view(kTexts[i]) == i_pszMessage;
        }
    };
    HarrowLogSetSink(sink, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    EXPECT_EQ(SSOInitPackage(), SSO_OK);
    bool bHit = true;
    for (long n = 1; bHit; ++n) {
        const AllocationFault once = {n, true, false, false, false};
        t_fault = once;
        EXPECT_EQ(SSOContinueLogin(nullptr, nullptr, 0, nullptr, nullptr), SSO_ERROR);  // at worst without a record
        bHit = t_fault.m_bHit;
        t_fault = {};
        EXPECT_EQ(SSOTermPackage(), SSO_OK);
        t_fault = once;
        const uint32_t nCode = SSOInitPackage();
        t_fault = {};
        EXPECT_TRUE(nCode == SSO_OK || SSOInitPackage() == SSO_OK) << n;
    }
    EXPECT_EQ(SSOTermPackage(), SSO_OK);
    HarrowLogSetSink([](auto...) {}, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    for (size_t i = 0; i < std::size(kTexts); ++i) {
        EXPECT_TRUE(s_aSaid[i]) << kTexts[i];
    }
}

TEST_P(Faults, EveryAllocation) {
    const char* const pszAll = getenv("MORWEN_FAULTS");
    const long nStride = pszAll != nullptr && pszAll == std::string_view("all") ? 1 : GetParam().m_nStride;
    for (const bool bFromThenOn : {false, true}) {
        ASSERT_EQ(Run(true, 0, bFromThenOn) + Run(false, 0, bFromThenOn) + Run(false, 0, bFromThenOn), "");
        long nHit = 0;
        bool bHit = true;
        for (long n = 1; bHit; n += nStride) {
            std::string wrong;
            long nLost = 1;
            // What is lost once may be kept, such as one more context of libkrb5; what is lost each time is lost.
            for (int nTries = 3; nLost > 0 && nTries > 0; --nTries) {
                const long nBlocks = g_nBlocks;
                wrong = Run(GetParam().m_bCold, n, bFromThenOn);
                bHit = m_bHit;
                wrong += Run(false, 0, bFromThenOn);
                nLost = wrong.empty() && !GetParam().m_bCold ? g_nBlocks - nBlocks : 0;
            }
            nHit += bHit ? 1 : 0;
            EXPECT_TRUE(wrong.empty() && nLost <= 0)
                << n << (bFromThenOn ? " and all that follow" : "") << wrong << "; lost: " << nLost;
        }
        EXPECT_GT(nHit, 10);
        std::cout << nHit << " passes with a failure\n";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, Faults,
    testing::Values(Operation{"Package", Package, false, false, 1}, Operation{"Settings", Settings, false, false, 1},
                    Operation{"ThreadToken", ThreadToken, false, false, 1}, Operation{"Logon", Tickets, true, false, 1},
                    Operation{"FirstLogon", Tickets, true, true, 5}, Operation{"Password", Password, true, false, 11},
                    Operation{"Renewal", Renewal, true, false, 3}),
    [](const auto& i_info) { return i_info.param.m_pszName; });

}  // namespace
}  // namespace morwen

// The clock that libkrb5's contexts age by.
extern "C" int clock_gettime(clockid_t i_nClock, timespec* o_pTime) noexcept {
    const long nResult = syscall(SYS_clock_gettime, i_nClock, o_pTime);
    o_pTime->tv_sec += i_nClock == CLOCK_MONOTONIC_COARSE ? morwen::s_nCoarse.load() : 0;
    return static_cast<int>(nResult);
}
