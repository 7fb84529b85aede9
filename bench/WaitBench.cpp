// How long calls take that must not wait for others: starts, ends and insertions beside the logons of sixteen threads,
// lookups and insertions beside the release of all contexts.
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
bool LogOn(SSOImpl& i_core, Output& o_context) {
    Output client, server, none;
    return i_core.SSOStartLogin({}, {}, u"SSPI", &kSpn, &client.m_pvToken, &client.m_nLength, &client.m_pszKey) ==
               SSO_CONTINUE &&
           i_core.SSOAcceptLogin(u"SSPI", {}, client.m_pvToken, client.m_nLength, &server.m_pvToken, &server.m_nLength,
                                 nullptr, &server.m_pszKey) == SSO_CONTINUE &&
           i_core.SSOContinueLogin(server.m_pvToken, server.m_nLength, client.m_pszKey, &none.m_pvToken,
                                   &none.m_nLength) == SSO_OK &&
           i_core.SSOAcceptLogin(u"SSPI", SWCharString(server.m_pszKey), nullptr, 0, &o_context.m_pvToken,
                                 &o_context.m_nLength, nullptr, &o_context.m_pszKey) == SSO_ACCEPTED;
}

bool Acquire(SSOImpl& i_core, Output& o_context) {
    return i_core.AcquireCurrentSecurityContext(u"THREADTOKEN", nullptr, &o_context.m_pszKey) == SSO_OK;
}

bool Release(SSOImpl& i_core, const Output& i_context) {
    return i_core.ReleaseSecurityContext(i_context.m_pszKey) == SSO_OK;
}

void Start(SSOImpl& i_core) {
    Require(i_core.Initialize() && i_core.InitSSOProvider(u"SSPI", &kKeep) == SSO_OK, "the start");
}

// Threads that log on without pause, for as long as it lives.
class Load {
public:
    explicit Load(SSOImpl& i_core) {
        for (int i = 0; i < kThreads; ++i) {
            m_threads.emplace_back([this, &i_core] {
                while (!m_bStop) {
                    Output context;
                    if (LogOn(i_core, context) && Release(i_core, context)) {
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
    double nLongest = 0;
    for ([[maybe_unused]] auto _ : io_state) {
        Start(core);
        {
            const Load load(core);
            for (int i = 0; i < i_nCalls; ++i) {
                load.AwaitLogons();
                const Clock::time_point begin = Clock::now();
                i_call(core);
                nLongest = std::max(nLongest, std::chrono::duration<double>(Clock::now() - begin).count());
                if (core.LookupSecurityContext(u"none") == SSO_ERROR) {
                    Start(core);
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
    Require(Acquire(i_core, context) && Release(i_core, context), "the insertion");
}

// So many contexts are released at once, while this thread makes one call after the other.
void RunReleaseAll(benchmark::State& io_state, const std::function<bool(SSOImpl&, Output&)>& i_keep) {
    SSOImpl& core = *SSOImpl::instance();
    const int64_t nContexts = io_state.range(0);
    double nLongest = 0;
    bool bGood = true;
    std::atomic<double> nAll = -1;
    for ([[maybe_unused]] auto _ : io_state) {
        Start(core);
        for (int64_t i = 0; i < nContexts; ++i) {
            Output context;
            Require(i_keep(core, context), "a context");
        }
        std::thread releasing([&] {
            const Clock::time_point begin = Clock::now();
            core.ReleaseAllSecurityContexts();
            nAll = std::chrono::duration<double>(Clock::now() - begin).count();
        });
        while (nAll < 0) {
            Output context;  // which may be among them
            const Clock::time_point begin = Clock::now();
            bGood = Acquire(core, context) && core.LookupSecurityContext(context.m_pszKey) != SSO_ERROR &&
                    core.ReleaseSecurityContext(context.m_pszKey) != SSO_ERROR && bGood;
            nLongest = std::max(nLongest, std::chrono::duration<double>(Clock::now() - begin).count());
        }
        releasing.join();
        Require(bGood, "a call meanwhile");
        core.Shutdown();
    }
    io_state.counters["longest_us"] = nLongest * 1e6;
    io_state.counters["each_ns"] = nAll * 1e9 / static_cast<double>(nContexts);
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
    Register("waits/release-all/logons", [](benchmark::State& io_state) { RunReleaseAll(io_state, LogOn); })
        ->Arg(20000)
        ->Iterations(1)
        ->Repetitions(3);
    Register("waits/release-all/captured", [](benchmark::State& io_state) { RunReleaseAll(io_state, Acquire); })
        ->Arg(100000)
        ->Arg(1000000)
        ->Iterations(1)
        ->Repetitions(3);
}

}  // namespace morwen::bench
