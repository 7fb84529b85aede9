// The log hub: a shared library of its own, so that a host can set its sink before it loads the plug-in and keep it
// when the plug-in goes.
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string_view>

#include "harrow/text/HideControls.h"
#include "morwen/harrow_log.h"

namespace {

struct Sink {
    HarrowLogSink m_pfn = nullptr;
    void* m_pvUser = nullptr;
    uint32_t m_nKinds = 0;
    std::atomic<uint32_t> m_nRunning{0};

    void Leave() {
        if (m_nRunning.fetch_sub(1) == 1) {
            m_nRunning.notify_all();
        }
    }
};

// The sink that is set and the one before it take turns in two places. Whoever speaks waits for nobody: behind a lock
// it would wait for a change of the sink, which waits for one that is running, which may wait for whoever speaks.
struct Hub {
    std::mutex m_changing;
    std::array<Sink, 2> m_sinks;
    std::atomic<uint64_t> m_nChanges{0};  // modulo two: the place of the sink that is set
    uint32_t m_nWantedKinds = 0;          // written by a change, read anywhere with a relaxed load
};

// Nothing in it that who speaks needs has a destructor: threads may speak while the process ends.
Hub g_hub;

// Plain data: a thread-local object with a destructor would keep this library loaded. In one place, because each takes
// a call to find.
struct OfThread {
    bool m_bInsideSink;
    std::array<char, 1024> m_aReason;  // ends with a zero byte
};
constinit thread_local OfThread t_ofThread{};

// The sink that is set, to be left again.
Sink& Enter() {
    for (;;) {
        const uint64_t nChanges = g_hub.m_nChanges.load();
        Sink& sink = g_hub.m_sinks[nChanges % 2];
        sink.m_nRunning.fetch_add(1);
        if (g_hub.m_nChanges.load() == nChanges) {
            return sink;  // and what it is does not change before it is left
        }
        sink.Leave();
    }
}

}  // namespace

void HarrowLogSetSink(HarrowLogSink i_pfnSink, void* i_pvUser, uint32_t i_nKinds) {
    if (t_ofThread.m_bInsideSink) {
        return;  // it would wait for itself
    }
    const std::lock_guard lock(g_hub.m_changing);
    const uint64_t nChanges = g_hub.m_nChanges.load();
    Sink& before = g_hub.m_sinks[nChanges % 2];
    Sink& next = g_hub.m_sinks[(nChanges + 1) % 2];
    next.m_pfn = i_pfnSink;
    next.m_pvUser = i_pvUser;
    next.m_nKinds = i_pfnSink == nullptr ? 0 : i_nKinds;
    std::atomic_ref<uint32_t>(g_hub.m_nWantedKinds).store(next.m_nKinds, std::memory_order_relaxed);
    g_hub.m_nChanges.store(nChanges + 1);
    for (uint32_t nRunning = before.m_nRunning.load(); nRunning != 0; nRunning = before.m_nRunning.load()) {
        before.m_nRunning.wait(nRunning);
    }
}

uint32_t* HarrowLogWantedKinds(void) {
    return &g_hub.m_nWantedKinds;
}

void HarrowLogWrite(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage) {
    bool& bInsideSink = t_ofThread.m_bInsideSink;
    if (bInsideSink) {
        return;
    }
    Sink& sink = Enter();
    if ((sink.m_nKinds & i_nKind) != 0) {
        bInsideSink = true;
        sink.m_pfn(i_nKind, i_pszFile, i_nLine, i_pszMessage, sink.m_pvUser);
        bInsideSink = false;
    }
    sink.Leave();
}

const char* HarrowLogReason(void) {
    return t_ofThread.m_aReason.data();
}

void HarrowLogSetReason(const char* i_pszReason) {
    OfThread& thread = t_ofThread;
    if (thread.m_bInsideSink) {
        return;  // the call that speaks to the sink goes on, and may yet fail
    }
    if (i_pszReason == nullptr || *i_pszReason == '\0') {
        thread.m_aReason.front() = '\0';  // as at the beginning of each call
        return;
    }
    const std::string_view text = i_pszReason;
    const size_t nLength = Harrowlib201::FittingLength(text, thread.m_aReason.size() - 1);
    std::memmove(thread.m_aReason.data(), text.data(), nLength);  // the text may be a part of the one before
    thread.m_aReason[nLength] = '\0';
    Harrowlib201::HideControls(std::span(thread.m_aReason).first(nLength));
}
