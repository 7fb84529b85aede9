#include "harrow/time/CalendarSeconds.h"

#include <chrono>

namespace Harrowlib201 {

int64_t UtcSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    using namespace std::chrono;
    const sys_days firstOfMonth = year_month_day(year(i_nYear) / January / 1) + months(i_nMonth - 1);
    return seconds(firstOfMonth.time_since_epoch() + days(i_nDay - 1)).count() + int64_t{i_nHour} * 3600 +
           int64_t{i_nMinute} * 60 + i_nSecond;
}

}  // namespace Harrowlib201
