#include "platform/linux/UnixAccount.h"

#include <algorithm>

namespace morwen {

void UnixAccount::SortGroups() {
    std::sort(m_groups.begin(), m_groups.end());
    m_groups.erase(std::unique(m_groups.begin(), m_groups.end()), m_groups.end());
}

bool operator==(const UnixAccount& i_left, const UnixAccount& i_right) noexcept {
    const auto contains = [](const UnixAccount& i_account, const UnixAccount& i_other) {
        return std::all_of(i_other.m_groups.begin(), i_other.m_groups.end(), [&i_account](gid_t i_nGroup) {
            return i_nGroup == i_account.m_nGroup ||
                   std::binary_search(i_account.m_groups.begin(), i_account.m_groups.end(), i_nGroup);
        });
    };
    return i_left.m_nUser == i_right.m_nUser && i_left.m_nGroup == i_right.m_nGroup && contains(i_left, i_right) &&
           contains(i_right, i_left);
}

}  // namespace morwen
