#include "platform/linux/TimeStamps.h"

#include <ctime>

namespace morwen {

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kSecondsFrom1601To1970 = 11'644'473'600;

TimeStamp FromTicks(int64_t i_nTicks) noexcept {
    return {static_cast<uint32_t>(i_nTicks & 0xFFFFFFFF), static_cast<int32_t>(i_nTicks >> 32)};
}

}  // namespace

TimeStamp LocalTimeStamp(int64_t i_nUtcSeconds) noexcept {
    constexpr int64_t kMostSeconds = std::numeric_limits<int64_t>::max() / kTicksPerSecond;
    constexpr int64_t kMostOffset = 2 * 86'400;
    if (i_nUtcSeconds >= kMostSeconds - kSecondsFrom1601To1970 - kMostOffset) {
        return FromTicks(std::numeric_limits<int64_t>::max());
    }
    const std::time_t nTime = i_nUtcSeconds;
    std::tm date = {};
    tzset();  // localtime_r alone does not see that the zone has changed; mktime, on the way back, does
    const int64_t nOffset = localtime_r(&nTime, &date) != nullptr ? date.tm_gmtoff : 0;
    return FromTicks((i_nUtcSeconds + nOffset + kSecondsFrom1601To1970) * kTicksPerSecond);
}

}  // namespace morwen
