#include "platform/linux/identity/UnixAccount.h"

#include <algorithm>

namespace morwen {

void UnixAccount::SortGroups() {
    std::sort(m_groups.begin(), m_groups.end());
    m_groups.erase(std::unique(m_groups.begin(), m_groups.end()), m_groups.end());
}

bool UnixAccount::Is(uid_t i_nUser, gid_t i_nGroup, std::span<const gid_t> i_groups) const noexcept {
    const auto contains = [i_nGroup](std::span<const gid_t> i_all, std::span<const gid_t> i_some) {
        return std::all_of(i_some.begin(), i_some.end(), [&](gid_t i_nOne) {
            return i_nOne == i_nGroup || std::binary_search(i_all.begin(), i_all.end(), i_nOne);
        });
    };
    return i_nUser == m_nUser && i_nGroup == m_nGroup &&
           (std::equal(i_groups.begin(), i_groups.end(), m_groups.begin(), m_groups.end()) ||
            (contains(m_groups, i_groups) && contains(i_groups, m_groups)));
}

}  // namespace morwen
