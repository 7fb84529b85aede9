#include "harrow/time/SDateTime.h"

#include <atomic>
#include <chrono>

#include "harrow/time/CalendarSeconds.h"

namespace Harrowlib201 {

namespace {

int64_t SystemClock() noexcept {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
}

std::atomic<SDateTime::Clock> s_pfnClock = SystemClock;

}  // namespace

SDateTime::SDateTime(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond,
                     int i_nMillisecond, STimeZone i_eZone) {
    const auto pfnSeconds = i_eZone == STimeZone::TZ_Local ? LocalSeconds : UtcSeconds;
    m_nMilliseconds = pfnSeconds(i_nYear, i_nMonth, i_nDay, i_nHour, i_nMinute, i_nSecond) * 1000 + i_nMillisecond;
}

SDateTime SDateTime::GetCurrentDateTime() noexcept {
    return SDateTime(s_pfnClock.load(std::memory_order_relaxed)());
}

void SDateTime::SetClock(Clock i_pfnClock) noexcept {
    s_pfnClock = i_pfnClock != nullptr ? i_pfnClock : SystemClock;
}

}  // namespace Harrowlib201
