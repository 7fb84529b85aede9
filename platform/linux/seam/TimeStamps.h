// SSPI's time stamps.
#pragma once

#include <cstdint>
#include <limits>

#include "platform/OsTypes.h"

namespace morwen {

// Seconds since 1970, UTC, for what has no end.
inline constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// The instant as SSPI reports it: 100 ns since 1601 on the local clock, which LocalSeconds reads back. kNever gives the
// largest time stamp.
TimeStamp LocalTimeStamp(int64_t i_nUtcSeconds) noexcept;

}  // namespace morwen
