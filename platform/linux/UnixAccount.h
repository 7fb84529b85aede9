// An account of this machine, as the kernel sees it.
#pragma once

#include <sys/types.h>

#include <vector>

namespace morwen {

struct UnixAccount {
    uid_t m_nUser = 0;
    gid_t m_nGroup = 0;
    std::vector<gid_t> m_groups;  // supplementary ones, sorted, none twice

    void SortGroups();

    // Whether they may do the same: it makes no difference whether the group stands among the supplementary ones too.
    friend bool operator==(const UnixAccount& i_left, const UnixAccount& i_right) noexcept;
};

}  // namespace morwen
