// The security identifiers that a token consists of.
#include "platform/linux/TokenSids.h"

#include <algorithm>
#include <cstddef>

namespace morwen {

void TokenSids::RemoveDuplicates() {
    // Sorted by place, because users of some directories are in thousands of groups.
    std::vector<const Sid*> order;
    order.reserve(m_groups.size());
    for (const Sid& group : m_groups) {
        order.push_back(&group);
    }
    std::sort(order.begin(), order.end(), [](const Sid* i_pLeft, const Sid* i_pRight) {
        const auto nOrder = *i_pLeft <=> *i_pRight;
        return nOrder != 0 ? nOrder < 0 : i_pLeft < i_pRight;
    });
    std::vector<bool> surplus(m_groups.size());
    const Sid* pEarlier = &m_user;
    for (const Sid* const pGroup : order) {
        surplus[static_cast<size_t>(pGroup - m_groups.data())] = *pGroup == *pEarlier || *pGroup == m_user;
        pEarlier = pGroup;
    }
    size_t nKept = 0;
    for (size_t i = 0; i < m_groups.size(); ++i) {
        if (!surplus[i]) {
            m_groups[nKept++] = m_groups[i];
        }
    }
    m_groups.resize(nKept);
}

}  // namespace morwen
