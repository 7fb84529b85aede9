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

class ServiceProfile;

// libkrb5's own transport waits up to half a minute for each KDC that does not answer, and a host's threads with it.
// This one takes its place through the library's send hook.
//
// KDCs are asked in their order, over TCP; over UDP as well when TCP is refused or silent. The next one is asked when
// one fails or has been silent for a second, and the first valid answer wins.
class KdcTransport {
public:
    using Clock = std::chrono::steady_clock;

    // To be called once for each context, with the profile that the context was made from.
    static void Install(krb5_context i_context, ServiceProfile* i_pProfile) noexcept;

    // For tests; everything else lives with the ten seconds that are in force at first.
    static void SetDeadline(std::chrono::milliseconds i_deadline) noexcept;

    struct Outcome {
        std::vector<uint8_t> m_answer;
        std::string m_answeredBy;  // KdcName's Text
        std::string m_failures;    // what the other KDCs did, in words
    };
    // Sends the request and waits for an answer until the deadline; KRB5_KDC_UNREACH when none came. Throws
    // std::bad_alloc.
    static krb5_error_code Exchange(krb5_context i_context, const std::vector<KdcName>& i_kdcs,
                                    std::span<const uint8_t> i_request, Clock::time_point i_deadline,
                                    Outcome& o_outcome);
};

}  // namespace morwen
