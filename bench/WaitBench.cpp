// How long calls take that must not wait for the logons of sixteen threads beside them: starts and ends, insertions.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"
#include "plugin/SSOImpl.h"

namespace morwen::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kThreads = 16;
constexpr ParasSeq kKeep = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"1", nullptr};
constexpr ParasSeq kSpn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"morwen/localhost", nullptr};

// The core that is linked into this program: the plug-in's own must stay started. What fails has met its end.
bool LogOn(SSOImpl& i_core) {
    Output client, server, none, context;
    return i_core.SSOStartLogin({}, {}, u"SSPI", &kSpn, &client.m_pvToken, &client.m_nLength, &client.m_pszKey) ==
               SSO_CONTINUE &&
           i_core.SSOAcceptLogin(u"SSPI", {}, client.m_pvToken, client.m_nLength, &server.m_pvToken, &server.m_nLength,
                                 nullptr, &server.m_pszKey) == SSO_CONTINUE &&
           i_core.SSOContinueLogin(server.m_pvToken, server.m_nLength, client.m_pszKey, &none.m_pvToken,
                                   &none.m_nLength) == SSO_OK &&
           i_core.SSOAcceptLogin(u"SSPI", SWCharString(server.m_pszKey), nullptr, 0, &context.m_pvToken,
                                 &context.m_nLength, nullptr, &context.m_pszKey) == SSO_ACCEPTED &&
           i_core.ReleaseSecurityContext(context.m_pszKey) == SSO_OK;
}

// Threads that log on without pause, for as long as it lives.
class Load {
public:
    explicit Load(SSOImpl& i_core) {
        for (int i = 0; i < kThreads; ++i) {
            m_threads.emplace_back([this, &i_core] {
                while (!m_bStop) {
                    if (LogOn(i_core)) {
                        ++m_nLogons;
                    } else {  // as a host's, which is not to take processors from those that the end waits for
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    }
                }
            });
        }
    }
    ~Load() {
        m_bStop = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    void AwaitLogons() const {
        for (const int nBefore = m_nLogons; m_nLogons - nBefore < kThreads;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    std::atomic<bool> m_bStop{false};
    std::atomic<int> m_nLogons{0};
    std::vector<std::thread> m_threads;
};

// The longest of some calls, each after a pause: a thread that has slept gets a processor at once, as a host's does
// that starts or ends something.
void RunBeside(benchmark::State& io_state, int i_nCalls, const std::function<void(SSOImpl&)>& i_call) {
    SSOImpl& core = *SSOImpl::instance();
    const auto start = [&core] {
        Require(core.Initialize() && core.InitSSOProvider(u"SSPI", &kKeep) == SSO_OK, "the start");
    };
    double nLongest = 0;
    for ([[maybe_unused]] auto _ : io_state) {
        start();
        {
            const Load load(core);
            for (int i = 0; i < i_nCalls; ++i) {
                load.AwaitLogons();
                const Clock::time_point begin = Clock::now();
                i_call(core);
                nLongest = std::max(nLongest, std::chrono::duration<double>(Clock::now() - begin).count());
                if (core.LookupSecurityContext(u"none") == SSO_ERROR) {
                    start();
                }
            }
        }
        core.Shutdown();
    }
    io_state.counters["longest_us"] = nLongest * 1e6;
}

void CountUpAndDown(SSOImpl& i_core) {
    Require(i_core.Initialize(), "the start");
    i_core.Shutdown();
}

void Insert(SSOImpl& i_core) {
    Output context;
    Require(i_core.AcquireCurrentSecurityContext(u"THREADTOKEN", nullptr, &context.m_pszKey) == SSO_OK &&
                i_core.ReleaseSecurityContext(context.m_pszKey) == SSO_OK,
            "the insertion");
}

}  // namespace

void RegisterWaits() {
    const std::pair<const char*, std::function<void(SSOImpl&)>> kCalls[] = {
        {"waits/nothing", [](SSOImpl&) {}},
        {"waits/nested-start-and-end", CountUpAndDown},
        {"waits/insert-and-release", Insert},
        {"waits/last-end", [](SSOImpl& i_core) { i_core.Shutdown(); }}};
    for (const auto& [pszName, call] : kCalls) {
        Register(pszName, [call = call](benchmark::State& io_state) { RunBeside(io_state, 20, call); })->Iterations(1);
    }
}

}  // namespace morwen::bench
