// One request to several KDCs at once, over TCP and UDP.
#include "tools/doctor/case/KdcQuestion.h"

#include <poll.h>

#include <algorithm>
#include <memory>

namespace morwen::doctor {

namespace {

using Clock = std::chrono::steady_clock;
using Progress = KdcAttempt::Progress;
using Protocol = KdcAttempt::Protocol;

constexpr std::chrono::milliseconds kRepeatAfter{700};  // a datagram may get lost

struct Running {
    size_t m_nReply;  // several attempts, one for each address, may belong to one reply
    std::unique_ptr<KdcAttempt> m_pAttempt;
    bool m_bOver = false;
};

void Step(Running& io_running, KdcReply& io_reply) {
    const Progress eProgress = io_running.m_pAttempt->Step();
    io_running.m_bOver = eProgress != Progress::Waiting;
    if (eProgress == Progress::Answered && io_reply.m_answer.empty()) {
        io_reply.m_answer = io_running.m_pAttempt->Answer();
    }
    io_reply.m_bRefused = io_reply.m_bRefused || eProgress == Progress::Refused;
    io_reply.m_words = io_running.m_pAttempt->Describe();
}

}  // namespace

std::vector<KdcReply> AskKdcs(const std::vector<KdcName>& i_kdcs, std::span<const uint8_t> i_request,
                              std::chrono::milliseconds i_wait, bool i_bOneIsEnough) {
    const Clock::time_point deadline = Clock::now() + i_wait;
    std::vector<KdcReply> replies;
    std::vector<Running> running;
    for (size_t i = 0; i < i_kdcs.size(); ++i) {
        const std::vector<KdcAddress> addresses = i_kdcs[i].Resolve();
        for (const Protocol eProtocol : {Protocol::Tcp, Protocol::Udp}) {
            if (addresses.empty() || !(eProtocol == Protocol::Tcp ? i_kdcs[i].m_bTcp : i_kdcs[i].m_bUdp)) {
                continue;
            }
            for (const KdcAddress& address : addresses) {
                running.push_back({replies.size(), std::make_unique<KdcAttempt>(address, eProtocol, i_request)});
            }
            replies.push_back({.m_nKdc = i, .m_eProtocol = eProtocol});
        }
    }
    const auto hasAnswer = [](const KdcReply& i_reply) { return !i_reply.m_answer.empty(); };
    Clock::time_point repeatAt = Clock::now() + kRepeatAfter;
    while (!running.empty() && Clock::now() < deadline &&
           !(i_bOneIsEnough && std::any_of(replies.begin(), replies.end(), hasAnswer))) {
        std::vector<pollfd> descriptors;
        bool bNews = false;
        for (const Running& attempt : running) {
            descriptors.push_back({attempt.m_pAttempt->Descriptor(), attempt.m_pAttempt->Events(), 0});
            bNews = bNews || attempt.m_pAttempt->Descriptor() < 0;
        }
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(std::min(deadline, repeatAt) - Clock::now());
        if (poll(descriptors.data(), descriptors.size(), bNews ? 0 : std::max(0, static_cast<int>(wait.count()))) < 0) {
            continue;  // interrupted; the clock is looked at before the next
        }
        for (size_t i = 0; i < running.size(); ++i) {
            if (descriptors[i].fd < 0 || descriptors[i].revents != 0) {
                Step(running[i], replies[running[i].m_nReply]);
            }
        }
        std::erase_if(running, [](const Running& i_running) { return i_running.m_bOver; });
        if (Clock::now() >= repeatAt) {
            std::for_each(running.begin(), running.end(), [](Running& io_r) { io_r.m_pAttempt->Repeat(); });
            repeatAt += kRepeatAfter;
        }
    }
    for (const Running& attempt : running) {
        replies[attempt.m_nReply].m_words = attempt.m_pAttempt->Describe();
    }
    return replies;
}

}  // namespace morwen::doctor
