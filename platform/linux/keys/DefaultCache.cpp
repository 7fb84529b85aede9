#include "platform/linux/keys/DefaultCache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

const char* NamedCache() noexcept {
    return secure_getenv("KRB5CCNAME");
}

namespace {

// Of a collection's folder, also in the name of one cache in it; empty for others.
std::string FolderOf(const std::string& i_name) {
    constexpr std::string_view kKind = "DIR:";
    if (!i_name.starts_with(kKind)) {
        return {};
    }
    const std::string path = i_name.substr(kKind.size());
    return path.starts_with(':') ? path.substr(1, path.rfind('/') - 1) : path;
}

}  // namespace

std::string FaultOfDefaultCache(const std::string& i_name, bool i_bRead) {
    const std::string folder = FolderOf(i_name);
    const std::string path = folder.empty() ? PathOfKrb5Name(i_name) : folder;
    struct stat status {};
    if (path.empty() || lstat(path.c_str(), &status) != 0) {
        return path.empty() || !i_bRead ? "" : "has gone while it was read, and nobody knows whose it was";
    }
    const std::string owner = "of the account with the number " + std::to_string(status.st_uid);
    if (S_ISLNK(status.st_mode)) {
        return "is a link " + owner;
    }
    if (folder.empty() ? !S_ISREG(status.st_mode) : !S_ISDIR(status.st_mode)) {
        return (folder.empty() ? "is no regular file, and one " : "is no folder, and one ") + owner;
    }
    if (!folder.empty() && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "is a folder where others may write";
    }
    const uid_t nUser = geteuid();
    return status.st_uid == nUser || status.st_uid == 0
               ? std::string()
               : (folder.empty() ? "is a file " : "is a folder ") + owner + ", not of " + std::to_string(nUser);
}

}  // namespace morwen
