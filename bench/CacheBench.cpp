// The clean-up pass, and how long other calls wait while it runs.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "bench/Bench.h"
#include "cache/ContextManager.h"
#include "cache/SecContextCache.h"
#include "cache/SecContextUpdateThread.h"
#include "handlers/HandlerToken.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "handlers/kerberos/SSPISession.h"
#include "handlers/kerberos/SSPIStaticToken.h"
#include "params/SequenceOwner.h"

namespace morwen::bench {

namespace {

using Harrowlib201::CSmartRefCountPtr;
using Harrowlib201::JTCHandleT;
using Harrowlib201::MakeCounted;
using Harrowlib201::TerminatingThread;
using Clock = std::chrono::steady_clock;

// A server's session that is complete: a handshake inside the process.
SSOSessionPtr MakeSession() {
    const SSOHandlerPtr pHandler = SSOHandlerFactory::instance()->GetHandler(u"SSPI");
    Parameters parameters;
    parameters.SetParameter(u"" SSO_KEY_SPN, SWCharString(u"morwen/localhost"));
    ParasSeq* pChain = nullptr;
    parameters.ToParasSeq(&pChain);
    const SequenceOwner chain(pChain);
    const SSOSessionPtr pClient = pHandler->CreateSession(chain.get());
    SSOSessionPtr pServer = pHandler->CreateSession(nullptr);
    HandlerToken request(*pHandler);
    HandlerToken reply(*pHandler);
    Parameters none;
    pHandler->InitializeContext(pHandler->CreateCredentials({}, {}, SSOHandler::kOutbound), pClient, nullptr, 0,
                                &request.m_pvToken, &request.m_nLength);
    pHandler->AcceptContext(pHandler->CreateCredentials({}, {}, SSOHandler::kInbound), pServer, request.Input(),
                            request.m_nLength, &reply.m_pvToken, &reply.m_nLength, false, none);
    return pServer;
}

// Its update thread ends as soon as it has begun: passes are run by hand.
class PassiveCache : public SecContextCache {
public:
    PassiveCache() : SecContextCache(0) {}

protected:
    JTCHandleT<TerminatingThread> MakeUpdateThread() override { return MakeCounted<SecContextUpdateThread>(nullptr); }
};

// So many tokens in a cache. They share one real context, because the pass asks no context anything; a million real
// ones would only measure the KDC.
class FilledCache {
public:
    explicit FilledCache(size_t i_nTokens)
        : m_pCache(MakeCounted<PassiveCache>()),
          m_manager(m_pCache),
          m_pSession(MakeSession()),
          m_pThread(MakeCounted<SecContextUpdateThread>(m_pCache.get())) {
        for (size_t i = 0; i < i_nTokens; ++i) {
            Insert(m_ssKey);
        }
    }
    ~FilledCache() {
        m_pThread->stop();
        m_pCache->StopUpdateThread();
    }
    FilledCache(const FilledCache&) = delete;
    FilledCache& operator=(const FilledCache&) = delete;

    void Insert(SWCharString& o_ssKey) {
        auto* const pSession = static_cast<SSPISession*>(m_pSession.get());
        m_pCache->Insert(o_ssKey, StaticTokenPtr(MakeCounted<SSPIStaticToken>(
                                      pSession->GetContext(), SSOHandlerFactory::instance()->GetHandler(u"SSPI"))));
    }
    void CleanUp() { m_pThread->CleanUp(); }

    // The longest of the calls that a host makes, one after the other, until told to stop.
    double LongestCall(const std::atomic<bool>& i_bStop) {
        double nLongest = 0;
        SWCharString ssOwn;
        const SWCharString ssRenamed(u"of the host's choice");
        const auto time = [&nLongest](const auto& i_call) {
            const Clock::time_point start = Clock::now();
            i_call();
            nLongest = std::max(nLongest, std::chrono::duration<double>(Clock::now() - start).count());
        };
        while (!i_bStop) {
            time([&] { m_manager.IsValid(m_ssKey); });
            time([&] { Insert(ssOwn); });
            time([&] { m_manager.AddAssociation(ssOwn, ssRenamed); });
            time([&] { m_manager.Remove(ssRenamed); });
        }
        return nLongest;
    }

private:
    const Harrowlib201::JTCAdoptCurrentThread m_adopted;
    const CSmartRefCountPtr<SecContextCache> m_pCache;
    ContextManager m_manager;
    const SSOSessionPtr m_pSession;
    const CSmartRefCountPtr<SecContextUpdateThread> m_pThread;
    SWCharString m_ssKey;
};

// As long as it lives, every ticket of the core that is linked into this program has expired.
struct Tomorrow {
    Tomorrow() {
        Harrowlib201::SDateTime::SetClock([]() noexcept -> int64_t {
            constexpr std::chrono::hours kDay{24};
            return std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch() + kDay)
                .count();
        });
    }
    ~Tomorrow() { Harrowlib201::SDateTime::SetClock(nullptr); }
    Tomorrow(const Tomorrow&) = delete;
    Tomorrow& operator=(const Tomorrow&) = delete;
};

size_t TokensOf(const benchmark::State& i_state) {
    return static_cast<size_t>(i_state.range(0));
}

// Kept from run to run, because filling takes longer than a pass.
FilledCache& CacheOf(size_t i_nTokens) {
    static std::map<size_t, std::unique_ptr<FilledCache>> s_caches;
    auto& pCache = s_caches[i_nTokens];
    if (!pCache) {
        pCache = std::make_unique<FilledCache>(i_nTokens);
    }
    return *pCache;
}

void RunPass(benchmark::State& io_state) {
    FilledCache& cache = CacheOf(TokensOf(io_state));
    for ([[maybe_unused]] auto _ : io_state) {
        cache.CleanUp();
    }
}

// The pass on a thread of its own, calls on this one.
void RunWaits(benchmark::State& io_state, FilledCache& io_cache, const std::function<void()>& i_pass) {
    double nLongest = 0;
    for ([[maybe_unused]] auto _ : io_state) {
        std::atomic<bool> bDone{false};
        std::thread pass([&] {
            i_pass();
            bDone = true;
        });
        nLongest = std::max(nLongest, io_cache.LongestCall(bDone));
        pass.join();
    }
    io_state.counters["longest_us"] = nLongest * 1e6;
}

void RunWaitsDuringPass(benchmark::State& io_state) {
    FilledCache& cache = CacheOf(TokensOf(io_state));
    RunWaits(io_state, cache, [&cache] { cache.CleanUp(); });
}

void RunWaitsDuringRemoval(benchmark::State& io_state) {
    FilledCache cache(TokensOf(io_state));
    const Tomorrow tomorrow;
    RunWaits(io_state, cache, [&cache] { cache.CleanUp(); });
}

// What the machine alone makes calls wait: nothing but another thread that works.
void RunWaitsWithoutPass(benchmark::State& io_state) {
    FilledCache& cache = CacheOf(TokensOf(io_state));
    RunWaits(io_state, cache, [] {
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds(30);
        while (Clock::now() < end) {
        }
    });
}

}  // namespace

void RegisterCaches() {
    for (const int64_t nTokens : {1000, 100000, 1000000}) {
        Register("cache/pass", RunPass)->Arg(nTokens);
        Register("cache/pass-waits", RunWaitsDuringPass)->Arg(nTokens)->Iterations(1);
    }
    Register("cache/removal-waits", RunWaitsDuringRemoval)->Arg(100000)->Iterations(1);
    Register("cache/no-pass-waits", RunWaitsWithoutPass)->Arg(100000)->Iterations(1);
}

}  // namespace morwen::bench
