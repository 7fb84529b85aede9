// A security identifier as a value.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "platform/OsTypes.h"

namespace morwen {

// Holds revision, authority and up to 15 sub-authorities in the layout of the SID record.
class Sid {
public:
    static constexpr size_t kMostBytes = 8 + 4 * size_t{SID_MAX_SUB_AUTHORITIES};

    Sid() noexcept = default;
    // Revision 1; i_nAuthority has 48 bits. More than 15 sub-authorities are cut.
    Sid(uint64_t i_nAuthority, std::initializer_list<uint32_t> i_subAuthorities) noexcept;

    // Appends one sub-authority; false when there is no room.
    bool Append(uint32_t i_nSubAuthority) noexcept {
        if (m_record.m_sid.SubAuthorityCount >= SID_MAX_SUB_AUTHORITIES) {
            return false;
        }
        std::memcpy(m_record.m_aBytes.data() + SizeInBytes(), &i_nSubAuthority, sizeof i_nSubAuthority);
        ++m_record.m_sid.SubAuthorityCount;
        return true;
    }

    size_t SizeInBytes() const noexcept {
        return offsetof(SID, SubAuthority) + sizeof(uint32_t) * m_record.m_sid.SubAuthorityCount;
    }
    // Points at SizeInBytes() bytes that can be read as a SID record.
    const SID* Record() const noexcept { return &m_record.m_sid; }

    friend bool operator==(const Sid& i_left, const Sid& i_right) noexcept;
    // Some order, for sorting.
    friend std::strong_ordering operator<=>(const Sid& i_left, const Sid& i_right) noexcept;

private:
    union Storage {
        SID m_sid;
        std::array<uint8_t, kMostBytes> m_aBytes;
    };
    Storage m_record{};
};

}  // namespace morwen
