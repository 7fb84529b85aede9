// A file that holds tickets or keys: whose it is, and who may read it.
#include "tools/doctor/case/FileLook.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace morwen::doctor {

FileLook::FileLook(const std::string& i_path) {
    // Opened rather than asked for access: a file system may decide otherwise than the mode says.
    const int nSeen = stat(i_path.c_str(), &m_status);
    const int nFile = nSeen == 0 ? open(i_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1;
    if (nFile < 0) {
        m_nError = errno;
    } else {
        close(nFile);
    }
}

std::string FileLook::Owner() const {
    const passwd* const pRecord = getpwuid(m_status.st_uid);
    return pRecord != nullptr ? pRecord->pw_name : "uid " + std::to_string(m_status.st_uid);
}

std::string FileLook::Text() const {
    std::array<char, 8> aMode{};
    static_cast<void>(std::snprintf(aMode.data(), aMode.size(), "%04o", m_status.st_mode & 07777U));
    return Owner() + ", mode " + aMode.data();
}

}  // namespace morwen::doctor
