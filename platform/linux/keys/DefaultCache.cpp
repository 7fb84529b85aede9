#include "platform/linux/keys/DefaultCache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

const char* NamedCache() noexcept {
    return secure_getenv("KRB5CCNAME");
}

std::string FaultOfDefaultCache(const std::string& i_name, bool i_bRead) {
    const std::string path = PathOfKrb5Name(i_name);
    struct stat status {};
    if (path.empty() || lstat(path.c_str(), &status) != 0) {
        return path.empty() || !i_bRead ? "" : "has gone while it was read, and nobody knows whose it was";
    }
    const std::string owner = "of the account with the number " + std::to_string(status.st_uid);
    if (S_ISLNK(status.st_mode)) {
        return "is a link " + owner;
    }
    if (!S_ISREG(status.st_mode)) {
        return "is no regular file, and one " + owner;
    }
    const uid_t nUser = geteuid();
    return status.st_uid == nUser || status.st_uid == 0 ? std::string()
                                                        : "is a file " + owner + ", not of " + std::to_string(nUser);
}

}  // namespace morwen
