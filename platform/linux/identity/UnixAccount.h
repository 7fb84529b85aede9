// An account of this machine, as the kernel sees it.
#pragma once

#include <sys/types.h>

#include <span>
#include <vector>

namespace morwen {

struct UnixAccount {
    uid_t m_nUser = 0;
    gid_t m_nGroup = 0;
    std::vector<gid_t> m_groups;  // supplementary ones, sorted, none twice

    void SortGroups();

    // Whether these ids, the groups sorted, may do the same: it makes no difference whether the group stands among the
    // supplementary ones too.
    bool Is(uid_t i_nUser, gid_t i_nGroup, std::span<const gid_t> i_groups) const noexcept;
    friend bool operator==(const UnixAccount& i_left, const UnixAccount& i_right) noexcept {
        return i_left.Is(i_right.m_nUser, i_right.m_nGroup, i_right.m_groups);
    }
};

}  // namespace morwen
