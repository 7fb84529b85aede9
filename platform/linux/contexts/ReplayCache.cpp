#include "platform/linux/contexts/ReplayCache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "harrow/log/STrace.h"

namespace morwen {

namespace {

void TraceEnvironmentOnce() {
    static std::atomic<bool> s_bTraced{false};
    const std::string value = ReplayCacheOfEnvironment();
    if (!value.empty() && Harrowlib201::ShouldTrace() && !s_bTraced.exchange(true)) {
        S_TRACE("ssoplugin: OwnReplayCache() -- The environment decides on the replay cache: %1", value);
    }
}

}  // namespace

std::string ReplayCacheOfEnvironment() {
    for (const char* const pszName : {"KRB5RCACHENAME", "KRB5RCACHETYPE"}) {
        if (const char* const pszValue = secure_getenv(pszName)) {
            return pszValue;
        }
    }
    return {};
}

ReplayCacheFile::ReplayCacheFile(uid_t i_nUser) {
    const char* pszFolder = secure_getenv("KRB5RCACHEDIR");
    if (pszFolder == nullptr) {
        pszFolder = secure_getenv("TMPDIR");
    }
    m_folder = pszFolder != nullptr ? pszFolder : "/var/tmp";
    m_path = m_folder + "/krb5_" + std::to_string(i_nUser) + ".rcache2";
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
