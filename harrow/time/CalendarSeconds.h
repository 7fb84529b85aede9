// Dates as seconds since 1970, UTC.
#pragma once

#include <cstdint>

namespace Harrowlib201 {

// Fields out of their range carry over.
int64_t UtcSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond);

// Of a date in the zone in which the system reports times. The build takes the file of the platform.
int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond);

// How far the zone's clock is ahead of UTC at this instant; not for Windows, whose system has its own idea of it.
int64_t LocalOffset(int64_t i_nUtcSeconds) noexcept;

}  // namespace Harrowlib201
