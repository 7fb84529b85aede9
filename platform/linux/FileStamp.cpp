#include "platform/linux/FileStamp.h"

#include <sys/stat.h>

namespace morwen {

std::optional<FileStamp> FileStamp::Of(const std::string& i_path) noexcept {
    struct stat file = {};
    if (stat(i_path.c_str(), &file) != 0) {
        return std::nullopt;
    }
    return FileStamp{file.st_dev, file.st_ino, file.st_mtim.tv_sec, file.st_mtim.tv_nsec, file.st_size};
}

std::string PathOfKrb5Name(const std::string& i_name) {
    const size_t nColon = i_name.find(':');
    if (nColon == std::string::npos || i_name.starts_with('/')) {
        return i_name;
    }
    const std::string kind = i_name.substr(0, nColon);
    return kind == "FILE" || kind == "WRFILE" ? i_name.substr(nColon + 1) : std::string();
}

}  // namespace morwen
