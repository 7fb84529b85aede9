#include "harrow/SDateTime.h"

#include <atomic>
#include <chrono>
#include <ctime>

namespace Harrowlib201 {

namespace {

int64_t SystemClock() noexcept {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
}

std::atomic<SDateTime::Clock> s_pfnClock = SystemClock;

int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    std::tm date = {};
    date.tm_year = i_nYear - 1900;
    date.tm_mon = i_nMonth - 1;
    date.tm_mday = i_nDay;
    date.tm_hour = i_nHour;
    date.tm_min = i_nMinute;
    date.tm_sec = i_nSecond;
    date.tm_isdst = -1;  // the zone's own rules say whether this date has daylight saving
    return std::mktime(&date);
}

int64_t UtcSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    using namespace std::chrono;
    const sys_days firstOfMonth = year_month_day(year(i_nYear) / January / 1) + months(i_nMonth - 1);
    return seconds(firstOfMonth.time_since_epoch() + days(i_nDay - 1)).count() + int64_t{i_nHour} * 3600 +
           int64_t{i_nMinute} * 60 + i_nSecond;
}

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
