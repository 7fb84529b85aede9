// Where the service notes the requests that it has seen.
#pragma once

#include <sys/types.h>

#include <string>

namespace morwen {

// What the environment says, which libkrb5 asks before anything else: KRB5RCACHENAME, or else KRB5RCACHETYPE; empty
// when it says nothing. Throws std::bad_alloc.
std::string ReplayCacheOfEnvironment();

// The file that libkrb5 would use for the user, if nobody has chosen another. Throws std::bad_alloc.
struct ReplayCacheFile {
    explicit ReplayCacheFile(uid_t i_nUser);

    std::string m_folder;
    std::string m_path;
};

// That file as a value of default_rcache_name, made if it was not there; empty when it is not safely this user's.
// Throws std::bad_alloc.
std::string OwnReplayCache();

}  // namespace morwen
