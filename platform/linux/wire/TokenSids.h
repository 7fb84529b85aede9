// The security identifiers that a token consists of.
#pragma once

#include <vector>

#include "platform/linux/wire/Sid.h"

namespace morwen {

struct TokenSids {
    Sid m_user;
    std::vector<Sid> m_groups;  // the primary group first

    // Leaves of each group the first mention, and of the user none; the order stays. Throws std::bad_alloc.
    void RemoveDuplicates();

    friend bool operator==(const TokenSids& i_left, const TokenSids& i_right) noexcept = default;
};

}  // namespace morwen
