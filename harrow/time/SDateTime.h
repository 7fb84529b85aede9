// An instant, and the zone in which a date is read.
#pragma once

#include <compare>
#include <cstdint>

#include "harrow/time/STimeSpan.h"

namespace Harrowlib201 {

enum class STimeZone { TZ_UTC, TZ_Local };

// Holds UTC milliseconds since 1970 whatever zone it was made from, so that instants compare across a change of the
// clock.
class SDateTime {
public:
    // What the clock says; milliseconds since 1970, UTC. Must not throw and may be called on any thread.
    using Clock = int64_t (*)() noexcept;

    constexpr SDateTime() noexcept = default;
    constexpr explicit SDateTime(int64_t i_nUtcMilliseconds) noexcept : m_nMilliseconds(i_nUtcMilliseconds) {}
    // From a date as the system reports it, in UTC or by its local clock (LocalSeconds in CalendarSeconds.h). Fields
    // out of their range carry over.
    SDateTime(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond, int i_nMillisecond,
              STimeZone i_eZone);

    static SDateTime GetCurrentDateTime() noexcept;
    // Puts another clock in place of the system's; null puts the system's back.
    static void SetClock(Clock i_pfnClock) noexcept;

    constexpr int64_t GetUtcMilliseconds() const noexcept { return m_nMilliseconds; }

    friend constexpr STimeSpan operator-(SDateTime i_left, SDateTime i_right) noexcept {
        const int64_t nLeft = i_left.m_nMilliseconds;
        const int64_t nRight = i_right.m_nMilliseconds;
        if (nRight == std::numeric_limits<int64_t>::min()) {  // it has no negative
            return STimeSpan(SaturatingAdd(SaturatingAdd(nLeft, std::numeric_limits<int64_t>::max()), 1));
        }
        return STimeSpan(SaturatingAdd(nLeft, -nRight));
    }
    friend constexpr SDateTime operator+(SDateTime i_left, STimeSpan i_span) noexcept {
        return SDateTime(SaturatingAdd(i_left.m_nMilliseconds, i_span.GetTotalMilliseconds()));
    }
    friend constexpr bool operator==(SDateTime, SDateTime) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(SDateTime, SDateTime) noexcept = default;

private:
    int64_t m_nMilliseconds = 0;
};

}  // namespace Harrowlib201
