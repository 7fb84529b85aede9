// Is what the layer makes local the same instant when it is read back?
#include <gtest/gtest.h>

#include <cstdlib>

#include "harrow/time/SDateTime.h"
#include "platform/linux/seam/LinuxKernel.h"
#include "platform/linux/seam/TimeStamps.h"

namespace morwen {
namespace {

using Harrowlib201::SDateTime;
using Harrowlib201::STimeZone;

SDateTime ReadBack(TimeStamp i_stamp) {
    const FILETIME fileTime = {i_stamp.LowPart, static_cast<DWORD>(i_stamp.HighPart)};
    SYSTEMTIME date{};
    EXPECT_NE(LinuxKernel().FileTimeToSystemTime(&fileTime, &date), FALSE);
    return {date.wYear,   date.wMonth,  date.wDay,          date.wHour,
            date.wMinute, date.wSecond, date.wMilliseconds, STimeZone::TZ_Local};
}

TEST(TimeStamps, ComeBackAsTheInstantThatTheyWere) {
    constexpr int64_t kNewYear2026 = 1'767'225'600;
    constexpr int64_t kQuarterHours = int64_t{365} * 24 * 4;
    // In force only if nothing has asked for the local time before, as where each test has a process of its own.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    for (int64_t i = 0; i <= kQuarterHours; ++i) {
        const int64_t nSeconds = kNewYear2026 + i * 900;
        ASSERT_EQ(ReadBack(LocalTimeStamp(nSeconds)), SDateTime(nSeconds * 1000)) << nSeconds;
    }
    setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);  // which a running program may do
    EXPECT_EQ(ReadBack(LocalTimeStamp(kNewYear2026)), SDateTime(kNewYear2026 * 1000));
    EXPECT_EQ(LocalTimeStamp(kNever).HighPart, std::numeric_limits<int32_t>::max());
}

}  // namespace
}  // namespace morwen
