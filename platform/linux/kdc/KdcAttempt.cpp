// One request to one address of a KDC, over TCP or UDP, as far as it goes without waiting.
#include "platform/linux/kdc/KdcAttempt.h"

#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace morwen {

namespace {

constexpr size_t kLargestDatagram = 65536;

bool MeansLater(int i_nError) {
    return i_nError == EAGAIN || i_nError == EWOULDBLOCK || i_nError == EINTR || i_nError == EINPROGRESS;
}

}  // namespace

KdcAttempt::KdcAttempt(const KdcAddress& i_address, Protocol i_eProtocol, std::span<const uint8_t> i_request)
    : m_eProtocol(i_eProtocol), m_request(i_request) {
    const int nType = i_eProtocol == Protocol::Tcp ? SOCK_STREAM : SOCK_DGRAM;
    m_nSocket = socket(i_address.m_address.ss_family, nType | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_nSocket < 0 ||
        (connect(m_nSocket, reinterpret_cast<const sockaddr*>(&i_address.m_address), i_address.m_nLength) != 0 &&
         !MeansLater(errno))) {
        m_nError = errno;
        return;
    }
    const auto nLength = static_cast<uint32_t>(i_request.size());
    for (size_t i = 0; i < m_aLength.size(); ++i) {
        m_aLength[i] = static_cast<uint8_t>(nLength >> (8 * (3 - i)));
    }
    Repeat();
}

KdcAttempt::~KdcAttempt() {
    if (m_nSocket >= 0) {
        close(m_nSocket);
    }
}

short KdcAttempt::Events() const noexcept {
    const bool bSending = m_eProtocol == Protocol::Tcp && m_nSent < m_aLength.size() + m_request.size();
    return bSending ? POLLOUT : POLLIN;
}

KdcAttempt::Progress KdcAttempt::Fail(const char* i_pszReason) noexcept {
    m_pszReason = i_pszReason;
    return Progress::Failed;
}

KdcAttempt::Progress KdcAttempt::FailWithErrno(int i_nError) noexcept {
    if (MeansLater(i_nError)) {
        return Progress::Waiting;
    }
    m_nError = i_nError;
    return i_nError == ECONNREFUSED ? Progress::Refused : Progress::Failed;
}

void KdcAttempt::Repeat() noexcept {
    if (m_eProtocol == Protocol::Udp && m_nError == 0 &&
        send(m_nSocket, m_request.data(), m_request.size(), MSG_NOSIGNAL) < 0 && !MeansLater(errno)) {
        m_nError = errno;
    }
}

KdcAttempt::Progress KdcAttempt::Step() {
    if (m_nError != 0) {
        return FailWithErrno(m_nError);
    }
    if (m_eProtocol == Protocol::Udp) {
        return StepUdp();
    }
    if (!m_bConnected) {
        int nError = 0;
        socklen_t nSize = sizeof nError;
        getsockopt(m_nSocket, SOL_SOCKET, SO_ERROR, &nError, &nSize);
        if (nError != 0) {
            return FailWithErrno(nError);
        }
        m_bConnected = true;
    }
    return m_nSent < m_aLength.size() + m_request.size() ? Send() : Receive();
}

KdcAttempt::Progress KdcAttempt::StepUdp() {
    m_answer.resize(kLargestDatagram);
    const ssize_t nRead = recv(m_nSocket, m_answer.data(), m_answer.size(), 0);
    if (nRead < 0) {
        return FailWithErrno(errno);
    }
    m_answer.resize(static_cast<size_t>(nRead));
    return Progress::Answered;
}

KdcAttempt::Progress KdcAttempt::Send() {
    const size_t nPrefix = m_nSent < m_aLength.size() ? m_aLength.size() - m_nSent : 0;
    const std::span<const uint8_t> body = m_request.subspan(m_nSent + nPrefix - m_aLength.size());
    std::array<iovec, 2> parts{
        {{m_aLength.data() + (m_aLength.size() - nPrefix), nPrefix}, {const_cast<uint8_t*>(body.data()), body.size()}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t nSent = sendmsg(m_nSocket, &message, MSG_NOSIGNAL);
    if (nSent < 0) {
        return FailWithErrno(errno);
    }
    m_nSent += static_cast<size_t>(nSent);
    return Progress::Waiting;
}

KdcAttempt::Progress KdcAttempt::Receive() {
    const bool bLength = m_nReceived < m_aLength.size();
    uint8_t* const pInto =
        bLength ? m_aLength.data() + m_nReceived : m_answer.data() + (m_nReceived - m_aLength.size());
    const size_t nWanted = (bLength ? 0 : m_answer.size()) + m_aLength.size() - m_nReceived;
    const ssize_t nRead = recv(m_nSocket, pInto, nWanted, 0);
    if (nRead <= 0) {
        return nRead < 0 ? FailWithErrno(errno) : Fail("connection closed without an answer");
    }
    m_nReceived += static_cast<size_t>(nRead);
    if (bLength && m_nReceived == m_aLength.size()) {
        uint32_t nLength = 0;
        for (const uint8_t nByte : m_aLength) {
            nLength = nLength << 8U | nByte;
        }
        if (nLength == 0 || nLength > kLongestAnswer) {
            return Fail("answer of an impossible length");
        }
        m_answer.resize(nLength);
    }
    return !bLength && m_nReceived == m_aLength.size() + m_answer.size() ? Progress::Answered : Progress::Waiting;
}

std::string KdcAttempt::Describe() const {
    if (m_pszReason != nullptr) {
        return m_pszReason;
    }
    if (m_nError != 0) {
        return std::generic_category().message(m_nError);
    }
    return m_eProtocol == Protocol::Tcp && !m_bConnected ? "no connection" : "no answer";
}

}  // namespace morwen
