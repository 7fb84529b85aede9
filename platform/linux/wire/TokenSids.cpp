// The security identifiers that a token consists of.
#include "platform/linux/wire/TokenSids.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace morwen {

namespace {

struct Place {
    uint32_t m_nLastNumber;  // differs among the groups of a domain, and is compared faster than a SID
    const Sid* m_pSid;
};

Place PlaceOf(const Sid& i_sid) noexcept {
    Place place{0, &i_sid};
    const auto* const pBytes = reinterpret_cast<const std::byte*>(i_sid.Record());
    std::memcpy(&place.m_nLastNumber, pBytes + i_sid.SizeInBytes() - sizeof(uint32_t), sizeof(uint32_t));
    return place;
}

bool IsBefore(const Place& i_left, const Place& i_right) noexcept {
    if (i_left.m_nLastNumber != i_right.m_nLastNumber) {
        return i_left.m_nLastNumber < i_right.m_nLastNumber;
    }
    const auto order = *i_left.m_pSid <=> *i_right.m_pSid;
    return order != 0 ? order < 0 : i_left.m_pSid < i_right.m_pSid;
}

}  // namespace

void TokenSids::RemoveDuplicates() {
    // Sorted, because users of some directories are in thousands of groups.
    std::vector<Place> places;
    places.reserve(m_groups.size());
    for (const Sid& group : m_groups) {
        places.push_back(PlaceOf(group));
    }
    std::sort(places.begin(), places.end(), IsBefore);
    std::vector<bool> surplus(m_groups.size());
    const Sid* pEarlier = &m_user;
    for (const Place& place : places) {
        const Sid& group = *place.m_pSid;
        surplus[static_cast<size_t>(&group - m_groups.data())] = group == *pEarlier || group == m_user;
        pEarlier = &group;
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
