// A file that holds tickets or keys: whose it is, and who may read it.
#pragma once

#include <sys/stat.h>

#include <string>

namespace morwen::doctor {

struct FileLook {
    // An errno of looking, or of opening for reading; 0: this account can read it.
    int m_nError = 0;
    struct stat m_status {};

    explicit FileLook(const std::string& i_path);
    // "alice, mode 0600".
    std::string Text() const;
    std::string Owner() const;
};

}  // namespace morwen::doctor
