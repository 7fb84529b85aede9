// Where the service notes the requests that it has seen.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/linux/contexts/SystemProfile.h"

namespace morwen {

// An administrator's own choice: KRB5RCACHENAME or KRB5RCACHETYPE in the environment, which libkrb5 asks before
// anything else, or default_rcache_name in the configuration; empty when there is none. Throws std::bad_alloc.
std::string ChosenReplayCache(const SystemProfile& i_system);

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
