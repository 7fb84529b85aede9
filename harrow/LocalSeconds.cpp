#include <ctime>

#include "harrow/CalendarSeconds.h"

namespace Harrowlib201 {

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

}  // namespace Harrowlib201
