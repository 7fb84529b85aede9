#include "platform/linux/seam/TimeStamps.h"

#include "harrow/time/CalendarSeconds.h"

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
    constexpr int64_t kMostOffset = 172'800;  // two days, more than any zone has
    if (i_nUtcSeconds >= kMostSeconds - kSecondsFrom1601To1970 - kMostOffset) {
        return FromTicks(std::numeric_limits<int64_t>::max());
    }
    return FromTicks((i_nUtcSeconds + Harrowlib201::LocalOffset() + kSecondsFrom1601To1970) * kTicksPerSecond);
}

}  // namespace morwen
