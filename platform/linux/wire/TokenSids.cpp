// The security identifiers that a token consists of.
#include "platform/linux/wire/TokenSids.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace morwen {

namespace {

// What differs among the groups of a domain, and is compared faster than a SID.
uint32_t LastNumber(const Sid& i_sid) noexcept {
    uint32_t nNumber = 0;
    const auto* const pBytes = reinterpret_cast<const std::byte*>(i_sid.Record());
    std::memcpy(&nNumber, pBytes + i_sid.SizeInBytes() - sizeof nNumber, sizeof nNumber);
    return nNumber;
}

// Marks all but the first of those that are equal, among some with the same last number in the order of their places.
void MarkSurplus(const std::vector<Sid>& i_sids, std::span<const uint64_t> i_places, std::vector<bool>& io_surplus) {
    std::vector<const Sid*> equals;
    equals.reserve(i_places.size());
    for (const uint64_t nPlace : i_places) {
        equals.push_back(&i_sids[static_cast<uint32_t>(nPlace)]);
    }
    std::stable_sort(equals.begin(), equals.end(),
                     [](const Sid* i_pLeft, const Sid* i_pRight) { return *i_pLeft < *i_pRight; });
    for (size_t i = 1; i < equals.size(); ++i) {
        if (*equals[i] == *equals[i - 1]) {
            io_surplus[static_cast<size_t>(equals[i] - i_sids.data())] = true;
        }
    }
}

}  // namespace

void TokenSids::RemoveDuplicates() {
    // Sorted, because users of some directories are in thousands of groups: by the last number, then as they stand.
    std::vector<uint64_t> places;
    places.reserve(m_groups.size());
    for (size_t i = 0; i < m_groups.size(); ++i) {
        places.push_back(uint64_t{LastNumber(m_groups[i])} << 32U | i);
    }
    std::sort(places.begin(), places.end());
    const auto number = [&places](size_t i_nAt) { return static_cast<uint32_t>(places[i_nAt] >> 32U); };
    const uint32_t nUser = LastNumber(m_user);
    std::vector<bool> surplus;  // empty while there is none
    for (size_t nFirst = 0, nEnd = 0; nFirst < places.size(); nFirst = nEnd) {
        for (nEnd = nFirst + 1; nEnd < places.size() && number(nEnd) == number(nFirst);) {
            ++nEnd;
        }
        const bool bLikeUser = number(nFirst) == nUser;
        if (nEnd - nFirst == 1 && !bLikeUser) {
            continue;
        }
        surplus.resize(m_groups.size());
        MarkSurplus(m_groups, std::span(places).subspan(nFirst, nEnd - nFirst), surplus);
        for (size_t i = nFirst; bLikeUser && i < nEnd; ++i) {
            const auto nAt = static_cast<uint32_t>(places[i]);
            surplus[nAt] = surplus[nAt] || m_groups[nAt] == m_user;
        }
    }
    size_t nKept = 0;
    for (size_t i = 0; i < surplus.size(); ++i) {
        if (!surplus[i]) {
            m_groups[nKept++] = m_groups[i];
        }
    }
    if (!surplus.empty()) {
        m_groups.resize(nKept);
    }
}

}  // namespace morwen
