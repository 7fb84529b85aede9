// Requests to a realm's KDCs, with one deadline for all of them together.
#pragma once

#include <krb5/krb5.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/kdc/KdcAddress.h"

namespace morwen {

struct KdcOutcome {
    std::vector<uint8_t> m_answer;
    std::string m_answeredBy;  // KdcName's Text
    std::string m_failures;    // what the other KDCs did, in words
};

// Sends the request and waits for an answer until the deadline; KRB5_KDC_UNREACH when none came. libkrb5's own
// transport waits up to half a minute for each KDC that does not answer, and a host's threads with it.
//
// KDCs are asked in their order, over TCP; over UDP as well when TCP is refused or silent. The next one is asked when
// one fails or has been silent for a second, and the first valid answer wins. Throws std::bad_alloc.
krb5_error_code ExchangeWithKdcs(krb5_context i_context, const std::vector<KdcName>& i_kdcs,
                                 std::span<const uint8_t> i_request, std::chrono::steady_clock::time_point i_deadline,
                                 KdcOutcome& o_outcome);

}  // namespace morwen
