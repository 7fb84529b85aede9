// Dates as seconds since 1970, UTC.
#pragma once

#include <cstdint>

namespace Harrowlib201 {

// Fields out of their range carry over.
int64_t UtcSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond);

// Of a date as the system's packages report it. The build takes the file of the platform.
int64_t LocalSeconds(int i_nYear, int i_nMonth, int i_nDay, int i_nHour, int i_nMinute, int i_nSecond);

// How far the local clock of reported times is ahead of UTC: as it was when it was first asked for, whatever the date.
// Who makes an instant local and who reads it back thus mean the same one, in the hour that autumn repeats and after a
// change of the zone too. Not for Windows, whose system has its own idea of it.
int64_t LocalOffset() noexcept;

}  // namespace Harrowlib201
