// What tells that a file has changed.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace morwen {

struct FileStamp {
    dev_t m_nDevice = 0;
    ino_t m_nInode = 0;
    int64_t m_nChangedSeconds = 0;
    int64_t m_nChangedNanoseconds = 0;
    off_t m_nSize = 0;
    int64_t m_nUnsettledIn = 0;  // the tick of the look at a file that had just been written: good in that one only

    // Nothing when there is no such file, or none that can be looked at.
    static std::optional<FileStamp> Of(const std::string& i_path) noexcept;

    friend bool operator==(const FileStamp&, const FileStamp&) noexcept = default;
};

// The tick of the system's clock, 1 to 10 milliseconds long (4 with 250 a second). A file that was looked at in the
// same tick is taken for unchanged, and looked at again in the next: to look costs more than a microsecond, and every
// logon looks several times.
int64_t ClockTick() noexcept;

}  // namespace morwen
