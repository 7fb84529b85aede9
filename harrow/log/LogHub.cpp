// The log hub: a shared library of its own, so that a host can set its sink before it loads the plug-in and keep it
// when the plug-in goes.
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string_view>

#include "harrow/text/HideControls.h"
#include "morwen/harrow_log.h"

namespace {

struct Hub {
    std::shared_mutex m_mutex;  // shared while a sink runs, exclusive while it is changed
    HarrowLogSink m_pfnSink = nullptr;
    void* m_pvUser = nullptr;
    uint32_t m_nWantedKinds = 0;  // written under the lock, read anywhere with a relaxed load
};

Hub& TheHub() {
    static Hub s_hub;
    return s_hub;
}

// A plain bool: a thread-local object with a destructor would keep this library loaded.
thread_local bool t_bInsideSink = false;

// Ends with a zero byte.
constinit thread_local std::array<char, 1024> t_aReason{};

}  // namespace

void HarrowLogSetSink(HarrowLogSink i_pfnSink, void* i_pvUser, uint32_t i_nKinds) {
    Hub& hub = TheHub();
    const std::unique_lock lock(hub.m_mutex);
    hub.m_pfnSink = i_pfnSink;
    hub.m_pvUser = i_pvUser;
    std::atomic_ref<uint32_t>(hub.m_nWantedKinds).store(i_pfnSink == nullptr ? 0 : i_nKinds, std::memory_order_relaxed);
}

uint32_t* HarrowLogWantedKinds(void) {
    return &TheHub().m_nWantedKinds;
}

void HarrowLogWrite(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage) {
    if (t_bInsideSink) {
        return;
    }
    Hub& hub = TheHub();
    const std::shared_lock lock(hub.m_mutex);
    if ((hub.m_nWantedKinds & i_nKind) == 0) {
        return;
    }
    t_bInsideSink = true;
    hub.m_pfnSink(i_nKind, i_pszFile, i_nLine, i_pszMessage, hub.m_pvUser);
    t_bInsideSink = false;
}

const char* HarrowLogReason(void) {
    return t_aReason.data();
}

void HarrowLogSetReason(const char* i_pszReason) {
    if (t_bInsideSink) {
        return;  // the call that speaks to the sink goes on, and may yet fail
    }
    const std::string_view text = i_pszReason != nullptr ? i_pszReason : "";
    const size_t nLength = Harrowlib201::FittingLength(text, t_aReason.size() - 1);
    std::memmove(t_aReason.data(), text.data(), nLength);  // the text may be a part of the one before
    t_aReason[nLength] = '\0';
    Harrowlib201::HideControls(std::span(t_aReason).first(nLength));
}
