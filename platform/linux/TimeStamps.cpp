#include "platform/linux/TimeStamps.h"

#include <atomic>
#include <cstdlib>
#include <ctime>

namespace morwen {

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kSecondsFrom1601To1970 = 11'644'473'600;

TimeStamp FromTicks(int64_t i_nTicks) noexcept {
    return {static_cast<uint32_t>(i_nTicks & 0xFFFFFFFF), static_cast<int32_t>(i_nTicks >> 32)};
}

// localtime_r alone does not see that the zone has changed; mktime, on the way back from a time stamp, does. Without TZ
// each tzset looks at the zone's file, which would be most of the cost of a time stamp: once a second is enough.
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

}  // namespace

TimeStamp LocalTimeStamp(int64_t i_nUtcSeconds) noexcept {
    constexpr int64_t kMostSeconds = std::numeric_limits<int64_t>::max() / kTicksPerSecond;
    constexpr int64_t kMostOffset = 172'800;  // two days, more than any zone has
    if (i_nUtcSeconds >= kMostSeconds - kSecondsFrom1601To1970 - kMostOffset) {
        return FromTicks(std::numeric_limits<int64_t>::max());
    }
    const std::time_t nTime = i_nUtcSeconds;
    std::tm date = {};
    RefreshZone();
    const int64_t nOffset = localtime_r(&nTime, &date) != nullptr ? date.tm_gmtoff : 0;
    return FromTicks((i_nUtcSeconds + nOffset + kSecondsFrom1601To1970) * kTicksPerSecond);
}

}  // namespace morwen
