// Whether what is behind a keytab or a ticket cache has changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/keys/FileStamp.h"

namespace morwen {

// One look, to be taken under no lock: a file may be on a server that is slow. A file has changed when its stamp has;
// what is no file counts as unchanged for some seconds, because nobody can tell.
class SourceLook {
public:
    // Never looked: everything has changed since.
    SourceLook() noexcept = default;
    // At the file with this path; an empty path stands for what is no file.
    explicit SourceLook(const std::string& i_path) noexcept;

    // In the same tick of the clock nothing has changed.
    bool IsOfThisTick() const noexcept { return m_nTick == ClockTick(); }

    // A later look, which takes this one's place. Whether it shows what this one has shown.
    bool GoOnWith(const SourceLook& i_later) noexcept;

private:
    int64_t m_nTick = 0;
    int64_t m_nReadAt = 0;  // nanoseconds, for what is no file
    bool m_bFile = false;
    std::optional<FileStamp> m_stamp;
};

}  // namespace morwen
