#include "handlers/RenewalRule.h"

#include "harrow/log/STrace.h"

namespace morwen {

using Harrowlib201::STimeSpan;

bool RenewalRule::IsDue() const {
    constexpr uint8_t kDefaultThreshold = 5;
    if (!m_bAllowed || m_cacheExpiry.isZero()) {
        return false;
    }
    // Either the context already lives as long as the cache keeps it, or the cache's time is over and it is to expire.
    if (m_cacheExpiry <= m_lifetime || m_age >= m_cacheExpiry) {
        return false;
    }
    uint8_t nThresholdPercentage = m_nThresholdPercentage;
    S_ASSERT(nThresholdPercentage < 100 && nThresholdPercentage > 0);
    if (nThresholdPercentage == 0 || nThresholdPercentage >= 100) {
        nThresholdPercentage = kDefaultThreshold;
    }
    // Multiplied unsigned, so that the product of a huge lifetime is defined.
    const auto nProduct =
        static_cast<int64_t>(uint64_t{nThresholdPercentage} * static_cast<uint64_t>(m_lifetime.GetTotalMilliseconds()));
    return m_timeToExpiry <= STimeSpan(nProduct / 100);
}

}  // namespace morwen
