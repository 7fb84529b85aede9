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

    // Nothing when there is no such file, or none that can be looked at.
    static std::optional<FileStamp> Of(const std::string& i_path) noexcept;

    friend bool operator==(const FileStamp&, const FileStamp&) noexcept = default;
};

// The path behind a name such as FILE:/etc/krb5.keytab; empty when the name is not that of a file.
std::string PathOfKrb5Name(const std::string& i_name);

}  // namespace morwen
