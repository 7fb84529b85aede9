// One request to one address of a KDC, over TCP or UDP, as far as it goes without waiting.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/kdc/KdcAddress.h"

namespace morwen {

class KdcAttempt {
public:
    enum class Protocol { Tcp, Udp };
    enum class Progress { Waiting, Answered, Refused, Failed };

    // The longest answer taken over TCP. Tickets with the largest group lists stay below a tenth of it, and a peer that
    // claims more must not make the process allocate it.
    static constexpr uint32_t kLongestAnswer = 1U << 20U;

    // The request must outlive the attempt. Opens the socket and begins; what fails shows at the first Step.
    KdcAttempt(const KdcAddress& i_address, Protocol i_eProtocol, std::span<const uint8_t> i_request);
    ~KdcAttempt();
    KdcAttempt(const KdcAttempt&) = delete;
    KdcAttempt& operator=(const KdcAttempt&) = delete;

    // What to poll for; the descriptor is -1 when Step has news without waiting.
    int Descriptor() const noexcept { return m_nError == 0 ? m_nSocket : -1; }
    short Events() const noexcept;

    // Goes on as far as possible. Throws std::bad_alloc.
    Progress Step();
    // Sends a datagram once more, because the one before may be lost; nothing over TCP.
    void Repeat() noexcept;

    const std::vector<uint8_t>& Answer() const noexcept { return m_answer; }
    // What happened, in words: "connection refused", "no answer".
    std::string Describe() const;

private:
    Progress Fail(const char* i_pszReason) noexcept;
    Progress FailWithErrno(int i_nError) noexcept;
    Progress StepUdp();
    Progress Send();
    Progress Receive();

    Protocol m_eProtocol;
    std::span<const uint8_t> m_request;
    int m_nSocket = -1;
    int m_nError = 0;                   // errno of what ended the attempt
    const char* m_pszReason = nullptr;  // the same in words, when errno has none
    bool m_bConnected = false;
    std::array<uint8_t, 4> m_aLength{};  // of the request, then of the answer
    size_t m_nSent = 0;                  // length prefix included
    size_t m_nReceived = 0;              // length prefix included
    std::vector<uint8_t> m_answer;
};

}  // namespace morwen
