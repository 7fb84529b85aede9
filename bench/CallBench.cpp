// The cheap exports beside a lock and a map that nobody else uses, parameter chains, traces, start-up.
#include <map>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"
#include "harrow/log/STrace.h"
#include "params/Parameters.h"
#include "params/SequenceOwner.h"
#include "plugin/SSOImpl.h"

namespace morwen::bench {

namespace {

constexpr size_t kContexts = 20000;

// Real contexts, kept as long as one benchmark of a lookup runs, and a plain map with the same keys.
struct Kept {
    std::vector<const SSOChar*> m_keys;  // as a host has them: each where the library has put it
    std::map<std::u16string, int, std::less<>> m_map;
    std::shared_mutex m_lock;

    Kept() {
        const ExportLogon logon({});
        for (size_t i = 0; i < kContexts; ++i) {
            Output context;
            logon.Keep(context);
            m_keys.push_back(std::exchange(context.m_pszKey, nullptr));
            m_map.emplace(Key(i), 0);
        }
    }
    const SSOChar* Key(size_t i_nAt) const { return m_keys[i_nAt % kContexts]; }
};

Kept& TheKept() {
    static auto* const s_pKept = new Kept;  // until the process ends: the package ends before static objects do
    return *s_pKept;
}

// The keys in an order that the caches of the processor cannot foresee.
constexpr size_t kStride = 377;

void RunLookup(benchmark::State& io_state) {
    const Kept& kept = TheKept();
    size_t nAt = static_cast<size_t>(io_state.thread_index()) * 7;
    for ([[maybe_unused]] auto _ : io_state) {
        Require(SSOLookupSecurityContext(kept.Key(nAt += kStride)) == SSO_OK, "SSOLookupSecurityContext");
    }
}

void RunMapLookup(benchmark::State& io_state) {
    Kept& kept = TheKept();
    size_t nAt = static_cast<size_t>(io_state.thread_index()) * 7;
    for ([[maybe_unused]] auto _ : io_state) {
        const std::shared_lock lock(kept.m_lock);
        Require(kept.m_map.find(kept.Key(nAt += kStride)) != kept.m_map.end(), "the map");
    }
}

void RunAssociate(benchmark::State& io_state) {
    const SSOChar* const pszKey = TheKept().Key(0);
    for ([[maybe_unused]] auto _ : io_state) {
        Require(SSOAssociateSecurityContext(pszKey, u"of the host's choice") == SSO_OK &&
                    SSOAssociateSecurityContext(u"of the host's choice", pszKey) == SSO_OK,
                "SSOAssociateSecurityContext");
    }
}

void RunMapAssociate(benchmark::State& io_state) {
    Kept& kept = TheKept();
    const auto rename = [&kept](const SSOChar* i_pszFrom, const SSOChar* i_pszTo) {
        const std::unique_lock lock(kept.m_lock);
        const auto found = kept.m_map.find(i_pszFrom);
        kept.m_map.emplace(i_pszTo, found->second);
        kept.m_map.erase(found);
    };
    for ([[maybe_unused]] auto _ : io_state) {
        rename(kept.Key(0), u"of the host's choice");
        rename(u"of the host's choice", kept.Key(0));
    }
}

// A failed call and the record of it.
void RunFailure(benchmark::State& io_state) {
    for ([[maybe_unused]] auto _ : io_state) {
        SSOError* pError = nullptr;
        Require(SSORevert(u"nothing") == SSO_ERROR, "SSORevert");
        Require(SSOGetError(SSO_ERROR, &pError) == SSO_OK, "SSOGetError");
        SSOFreeError(pError);
    }
}

void RunNoRecord(benchmark::State& io_state) {
    SSOError* pEarlier = nullptr;
    SSOGetError(SSO_ERROR, &pEarlier);
    SSOFreeError(pEarlier);
    for ([[maybe_unused]] auto _ : io_state) {
        SSOError* pError = nullptr;
        Require(SSOGetError(SSO_ERROR, &pError) == SSO_ERROR, "SSOGetError");
    }
}

// A host's chain.
struct HostChain {
    std::vector<std::u16string> m_keys;
    std::vector<ParasSeq> m_elements;

    explicit HostChain(size_t i_nCount) : m_keys(i_nCount), m_elements(i_nCount) {
        for (size_t i = 0; i < i_nCount; ++i) {
            const std::string key = "A_PARAMETER_OF_SOME_HOST_" + std::to_string(i);
            m_keys[i].assign(key.begin(), key.end());
            m_elements[i] = {m_keys[i].c_str(), SSO_PARAMETER_STRING, u"its value",
                             i + 1 < i_nCount ? &m_elements[i + 1] : nullptr};
        }
    }
};

void RunReadChain(benchmark::State& io_state) {
    const HostChain chain(static_cast<size_t>(io_state.range(0)));
    for ([[maybe_unused]] auto _ : io_state) {
        const Parameters parameters(chain.m_elements.data());
        benchmark::DoNotOptimize(&parameters);
    }
}

void RunWriteChain(benchmark::State& io_state) {
    const HostChain chain(static_cast<size_t>(io_state.range(0)));
    const Parameters parameters(chain.m_elements.data());
    for ([[maybe_unused]] auto _ : io_state) {
        ParasSeq* pChain = nullptr;
        parameters.ToParasSeq(&pChain);
        const SequenceOwner owner(pChain);
    }
}

// The loop around them costs a part of a nanosecond, which is not taken off.
void RunTrace(benchmark::State& io_state) {
    for ([[maybe_unused]] auto _ : io_state) {
        S_TRACE("bench: %1 is read by nobody", io_state.max_iterations);
    }
}

void RunAssertion(benchmark::State& io_state) {
    bool bHolds = true;
    for ([[maybe_unused]] auto _ : io_state) {
        benchmark::DoNotOptimize(bHolds);
        S_ASSERT(bHolds);
    }
}

// The core that is linked into this program: the plug-in's own stays started.
void RunStartAndEnd(benchmark::State& io_state) {
    const ParasSeq keep = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"1", nullptr};
    const auto pCore = SSOImpl::instance();
    for ([[maybe_unused]] auto _ : io_state) {
        Require(pCore->Initialize() && pCore->InitSSOProvider(u"SSPI", &keep) == SSO_OK, "the start");
        pCore->Shutdown();
    }
}

}  // namespace

void RegisterCalls() {
    for (const int nThreads : {1, 2}) {
        Register("call/lookup", RunLookup)->Threads(nThreads);
        Register("call/lookup-map", RunMapLookup)->Threads(nThreads);
    }
    Register("call/associate", RunAssociate);
    Register("call/associate-map", RunMapAssociate);
    Register("call/no-error", RunNoRecord);
    Register("call/failure-and-error", RunFailure);
    Register("chain/read", RunReadChain)->Arg(4)->Arg(1000);
    Register("chain/write", RunWriteChain)->Arg(4)->Arg(1000);
    Register("trace/unheard", RunTrace);
    Register("trace/assertion", RunAssertion);
    Register("package/start-and-end", RunStartAndEnd);
}

}  // namespace morwen::bench
