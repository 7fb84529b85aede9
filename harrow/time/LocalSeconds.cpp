#include <ctime>

#include "harrow/time/CalendarSeconds.h"

namespace Harrowlib201 {

int64_t LocalOffset() noexcept {
    static const int64_t s_nOffset = [] {
        const std::time_t nNow = std::time(nullptr);
        std::tm date = {};
        tzset();
        return localtime_r(&nNow, &date) != nullptr ? int64_t{date.tm_gmtoff} : 0;
    }();
    return s_nOffset;
}

int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    return UtcSeconds(i_nYear, i_nMonth, i_nDay, i_nHour, i_nMinute, i_nSecond) - LocalOffset();
}

}  // namespace Harrowlib201
