// One request to several KDCs at once, over TCP and UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/kdc/KdcAttempt.h"

namespace morwen::doctor {

struct KdcReply {
    size_t m_nKdc = 0;  // which of the KDCs that were asked
    KdcAttempt::Protocol m_eProtocol{};
    std::vector<uint8_t> m_answer{};  // empty: none
    bool m_bRefused = false;
    std::string m_words{};  // when there is no answer: why
};

// One entry for each KDC and protocol that it offers; none for a KDC whose name has no address. Ends when all have
// answered or failed, when one has answered if that is enough, or after the wait. Throws std::bad_alloc.
std::vector<KdcReply> AskKdcs(const std::vector<KdcName>& i_kdcs, std::span<const uint8_t> i_request,
                              std::chrono::milliseconds i_wait, bool i_bOneIsEnough);

}  // namespace morwen::doctor
