// A security identifier as a value.
#include "platform/linux/wire/Sid.h"

#include <cstring>

namespace morwen {

static_assert(offsetof(SID, SubAuthority) == 8 && sizeof(Sid) == Sid::kMostBytes && alignof(Sid) == alignof(SID));

Sid::Sid(uint64_t i_nAuthority, std::initializer_list<uint32_t> i_subAuthorities) noexcept {
    m_record.m_sid.Revision = SID_REVISION;
    for (size_t i = 0; i < 6; ++i) {
        m_record.m_sid.IdentifierAuthority.Value[i] = static_cast<BYTE>(i_nAuthority >> (8 * (5 - i)));
    }
    for (const uint32_t nSubAuthority : i_subAuthorities) {
        Append(nSubAuthority);
    }
}

bool operator==(const Sid& i_left, const Sid& i_right) noexcept {
    // The count is among the bytes that are compared, so records of different length differ before they end.
    return std::memcmp(&i_left.m_record, &i_right.m_record, i_left.SizeInBytes()) == 0;
}

std::strong_ordering operator<=>(const Sid& i_left, const Sid& i_right) noexcept {
    // What a SID does not use is zero.
    return std::memcmp(i_left.m_record.m_aBytes.data(), i_right.m_record.m_aBytes.data(), Sid::kMostBytes) <=> 0;
}

}  // namespace morwen
