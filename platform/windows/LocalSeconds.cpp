// Local time as the system's packages report it: with the difference to UTC that holds now, whatever the date. mktime
// would not do: it takes that of the date, and listens to the environment's TZ, which the system does not.
#include "harrow/time/CalendarSeconds.h"
#include "platform/windows/types/WindowsTypes.h"

namespace Harrowlib201 {

int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond) {
    constexpr int64_t kTicks = 10000000;        // 100 ns
    constexpr int64_t kFrom1601 = 11644473600;  // seconds to 1970
    const int64_t nSeconds = UtcSeconds(i_nYear, i_nMonth, i_nDay, i_nHour, i_nMinute, i_nSecond);
    const uint64_t nLocal = static_cast<uint64_t>((nSeconds + kFrom1601) * kTicks);
    const FILETIME local = {static_cast<DWORD>(nLocal), static_cast<DWORD>(nLocal >> 32)};
    FILETIME utc = local;
    ::LocalFileTimeToFileTime(&local, &utc);
    const uint64_t nUtc = (uint64_t{utc.dwHighDateTime} << 32) | utc.dwLowDateTime;
    return static_cast<int64_t>(nUtc) / kTicks - kFrom1601;
}

}  // namespace Harrowlib201
