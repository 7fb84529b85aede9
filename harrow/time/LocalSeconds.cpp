#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>

#include "harrow/time/CalendarSeconds.h"

namespace Harrowlib201 {

namespace {

// localtime_r alone does not see that the zone has changed. Without TZ each tzset, and so each mktime, looks at the
// zone's file, and all threads of the process wait for it: once a second is enough.
void RefreshZone() noexcept {
    static std::atomic<std::time_t> s_nNextLook{0};
    timespec now{};
    if (std::getenv("TZ") != nullptr) {
        s_nNextLook.store(0, std::memory_order_relaxed);
        tzset();
    } else if (clock_gettime(CLOCK_MONOTONIC_COARSE, &now) != 0 ||
               now.tv_sec >= s_nNextLook.load(std::memory_order_relaxed)) {
        s_nNextLook.store(now.tv_sec + 1, std::memory_order_relaxed);
        tzset();
    }
}

int64_t OffsetAt(int64_t i_nUtcSeconds) noexcept {
    const std::time_t nTime = i_nUtcSeconds;
    std::tm date = {};
    return localtime_r(&nTime, &date) != nullptr ? date.tm_gmtoff : 0;
}

}  // namespace

int64_t LocalOffset(int64_t i_nUtcSeconds) noexcept {
    RefreshZone();
    return OffsetAt(i_nUtcSeconds);
}

int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    constexpr int64_t kDay = 86'400;
    const int64_t nLocal = UtcSeconds(i_nYear, i_nMonth, i_nDay, i_nHour, i_nMinute, i_nSecond);
    RefreshZone();
    const int64_t nBefore = OffsetAt(nLocal - kDay);
    const int64_t nAfter = OffsetAt(nLocal + kDay);
    if (nBefore == nAfter) {
        return nLocal - nBefore;
    }
    // Near a change: what the clock shows twice means the first time, and what it never shows counts on from before.
    const int64_t nFirst = nLocal - std::max(nBefore, nAfter);
    const int64_t nSecond = nLocal - std::min(nBefore, nAfter);
    return OffsetAt(nFirst) == nLocal - nFirst     ? nFirst
           : OffsetAt(nSecond) == nLocal - nSecond ? nSecond
                                                   : nLocal - nBefore;
}

}  // namespace Harrowlib201
