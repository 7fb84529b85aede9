#include "platform/linux/contexts/ReplayCache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "harrow/log/STrace.h"

namespace morwen {

namespace {

// The variable that decides; null when none does.
const char* DecidingVariable() noexcept {
    for (const char* const pszName : {"KRB5RCACHENAME", "KRB5RCACHETYPE"}) {
        if (secure_getenv(pszName) != nullptr) {
            return pszName;
        }
    }
    return nullptr;
}

void TraceEnvironmentOnce() {
    static std::atomic<bool> s_bTraced{false};
    const char* const pszName = DecidingVariable();
    if (pszName != nullptr && Harrowlib201::ShouldTrace() && !s_bTraced.exchange(true)) {
        S_TRACE("ssoplugin: OwnReplayCache() -- The environment decides on the replay cache: %1=%2", pszName,
                secure_getenv(pszName));
    }
}

}  // namespace

std::string ChosenReplayCache(const SystemProfile& i_system) {
    if (const char* const pszName = DecidingVariable()) {
        return secure_getenv(pszName);
    }
    const char* const aNames[] = {"libdefaults", "default_rcache_name", nullptr};
    std::vector<std::string> values;
    i_system.Values(aNames, values);
    return values.empty() ? std::string() : values.front();
}

ReplayCacheFile::ReplayCacheFile(uid_t i_nUser) {
    const char* pszFolder = secure_getenv("KRB5RCACHEDIR");
    if (pszFolder == nullptr) {
        pszFolder = secure_getenv("TMPDIR");
    }
    m_folder = pszFolder != nullptr ? pszFolder : "/var/tmp";
    m_path.append(m_folder).append("/krb5_").append(std::to_string(i_nUser)).append(".rcache2");
}

// Through a name libkrb5 opens any file, so what it checks for its own choice is checked here: a regular file, not
// behind a link, owned by this user. Once it is there and ours, nobody else can replace it in a sticky folder. When the
// check fails, the library's own choice is left in force, which makes the same check at every use and refuses logons.
std::string OwnReplayCache() {
    TraceEnvironmentOnce();
    const uid_t nUser = geteuid();
    const ReplayCacheFile file(nUser);
    const int nFile = open(file.m_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    struct stat status {};
    const bool bOurs = nFile >= 0 && fstat(nFile, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == nUser;
    if (nFile >= 0) {
        close(nFile);
    }
    if (!bOurs) {
        S_TRACE("ssoplugin: OwnReplayCache() -- The replay cache %1 is not a file of user %2, logons will be refused.",
                file.m_path, static_cast<uint32_t>(nUser));
        return {};
    }
    return "file2:" + file.m_path;
}

}  // namespace morwen
