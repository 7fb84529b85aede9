// When a cached context is to be renewed.
#pragma once

#include <cstdint>

#include "harrow/time/STimeSpan.h"

namespace morwen {

// What the decision depends on.
struct RenewalRule {
    bool m_bAllowed = false;
    Harrowlib201::STimeSpan m_cacheExpiry;  // zero: contexts are kept without limit, and not renewed
    uint8_t m_nThresholdPercentage = 0;     // of the lifetime; 0 and 100 or more count as 5

    Harrowlib201::STimeSpan m_lifetime;      // of the context, from its last negotiation on
    Harrowlib201::STimeSpan m_age;           // since the login
    Harrowlib201::STimeSpan m_timeToExpiry;  // of the context

    bool IsDue() const;
};

}  // namespace morwen
