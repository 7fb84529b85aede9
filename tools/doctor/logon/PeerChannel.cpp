// What the two halves of a logon say to each other, as lines of text.
#include "tools/doctor/logon/PeerChannel.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <span>
#include <system_error>

namespace morwen::doctor {

namespace {

// Tickets with the largest group lists and a forwarded ticket stay far below.
constexpr size_t kLargestToken = size_t{256} * 1024;
constexpr size_t kLongestLine = 4000;  // a terminal takes no longer ones
constexpr size_t kLineOfToken = 76;
constexpr int kMostOtherLines = 1000;
constexpr std::string_view kMark = "morwen ";

std::string Trimmed(const std::string& i_line) {
    const size_t nBegin = i_line.find_first_not_of(" \t\r");
    return nBegin == std::string::npos ? "" : i_line.substr(nBegin, i_line.find_last_not_of(" \t\r") + 1 - nBegin);
}

// Base64: tokens as characters that survive copying and pasting.
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string ToBase64(std::span<const uint8_t> i_bytes) {
    std::string text;
    for (size_t i = 0; i < i_bytes.size(); i += 3) {
        const size_t nHere = i_bytes.size() - i < 3 ? i_bytes.size() - i : 3;
        uint32_t nBits = 0;
        for (size_t n = 0; n < 3; ++n) {
            nBits = nBits << 8U | (n < nHere ? i_bytes[i + n] : 0U);
        }
        for (size_t n = 0; n < 4; ++n) {
            text += n <= nHere ? kDigits[nBits >> (18U - 6U * n) & 0x3FU] : '=';
        }
    }
    return text;
}

// Nothing for what is not base64 with its padding.
std::optional<std::vector<uint8_t>> FromBase64(std::string_view i_text) {
    if (i_text.size() % 4 != 0) {
        return std::nullopt;
    }
    size_t nPadding = 0;
    while (nPadding < 2 && nPadding < i_text.size() && i_text[i_text.size() - 1 - nPadding] == '=') {
        ++nPadding;
    }
    std::vector<uint8_t> bytes;
    uint32_t nBits = 0;
    for (size_t i = 0; i < i_text.size(); ++i) {
        const bool bPadding = i >= i_text.size() - nPadding;
        const size_t nDigit = bPadding ? 0 : kDigits.find(i_text[i]);
        if (nDigit == std::string_view::npos) {
            return std::nullopt;
        }
        nBits = nBits << 6U | static_cast<uint32_t>(nDigit);
        if (i % 4 == 3) {
            bytes.insert(bytes.end(), {static_cast<uint8_t>(nBits >> 16U), static_cast<uint8_t>(nBits >> 8U),
                                       static_cast<uint8_t>(nBits)});
            nBits = 0;
        }
    }
    bytes.resize(bytes.size() - nPadding);
    return bytes;
}

}  // namespace

PeerChannel::PeerChannel(int i_nIn, int i_nOut, Clock::time_point i_deadline)
    : m_nIn(i_nIn), m_nOut(i_nOut), m_deadline(i_deadline) {}

void PeerChannel::Await(int i_nDescriptor, short i_nEvents) const {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now());
        pollfd wait{i_nDescriptor, i_nEvents, 0};
        const int nReady = left.count() > 0 ? poll(&wait, 1, static_cast<int>(left.count())) : 0;
        if (nReady > 0) {
            return;
        }
        if (nReady == 0) {
            throw PeerError("the other side does not answer in time");
        }
        if (errno != EINTR) {
            throw PeerError("waiting for the other side: " + std::generic_category().message(errno));
        }
    }
}

void PeerChannel::Write(std::string_view i_text) {
    while (!i_text.empty()) {
        Await(m_nOut, POLLOUT);
        // A socket takes what fits and keeps the deadline; a pipe or terminal of the user's may block.
        ssize_t nSent = send(m_nOut, i_text.data(), i_text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nSent < 0 && errno == ENOTSOCK) {
            nSent = write(m_nOut, i_text.data(), i_text.size());
        }
        if (nSent < 0 && errno != EAGAIN && errno != EINTR) {
            throw PeerError("sending to the other side: " + std::generic_category().message(errno));
        }
        i_text.remove_prefix(nSent > 0 ? static_cast<size_t>(nSent) : 0);
    }
}

std::string PeerChannel::ReadLine() {
    for (;;) {
        if (const size_t nEnd = m_unread.find('\n'); nEnd != std::string::npos) {
            const std::string line = m_unread.substr(0, nEnd);
            m_unread.erase(0, nEnd + 1);
            return Trimmed(line);
        }
        if (m_unread.size() > kLongestLine) {
            throw PeerError("the other side sends a line that is too long");
        }
        Await(m_nIn, POLLIN);
        std::array<char, kLongestLine> aBytes{};
        const ssize_t nRead = read(m_nIn, aBytes.data(), aBytes.size());
        if (nRead == 0 || (nRead < 0 && errno != EINTR && errno != EAGAIN)) {
            throw PeerError("the other side is gone");
        }
        m_unread.append(aBytes.data(), nRead > 0 ? static_cast<size_t>(nRead) : 0);
    }
}

void PeerChannel::SendToken(std::span<const uint8_t> i_token) {
    const std::string digits = ToBase64(i_token);
    std::string text = std::string(kMark) + "token " + std::to_string(i_token.size()) + "\n";
    for (size_t i = 0; i < digits.size(); i += kLineOfToken) {
        text += digits.substr(i, kLineOfToken) + "\n";
    }
    Write(text + std::string(kMark) + "end\n");
}

void PeerChannel::Send(std::string_view i_word) {
    Write(std::string(kMark) + std::string(i_word) + "\n");
}

PeerChannel::Message PeerChannel::Receive() {
    for (int nOther = 0; nOther < kMostOtherLines; ++nOther) {
        const std::string line = ReadLine();
        if (!line.starts_with(kMark)) {
            continue;
        }
        const std::string rest = line.substr(kMark.size());
        const std::string word = rest.substr(0, rest.find(' '));
        if (word == "token" && rest.size() > word.size()) {
            return {word, ReceiveToken(rest.substr(word.size() + 1))};
        }
        if (word == "done" || word == "accepted" || word == "refused") {
            return {word};
        }
        throw PeerError("the other side says \"" + rest.substr(0, 40) + "\", which is no line of a logon");
    }
    throw PeerError("the other side says a lot, and nothing of a logon");
}

std::vector<uint8_t> PeerChannel::ReceiveToken(const std::string& i_length) {
    size_t nLength = 0;
    const char* const pEnd = i_length.data() + i_length.size();
    const auto [pRead, eError] = std::from_chars(i_length.data(), pEnd, nLength);
    if (eError != std::errc() || pRead != pEnd || nLength == 0 || nLength > kLargestToken) {
        throw PeerError("the other side announces a token of an impossible length");
    }
    std::string digits;
    for (std::string line = ReadLine(); line != std::string(kMark) + "end"; line = ReadLine()) {
        digits += line;
        if (digits.size() > (nLength + 2) / 3 * 4 || line.starts_with(kMark)) {
            throw PeerError("the token has more than its " + std::to_string(nLength) + " bytes");
        }
    }
    auto token = FromBase64(digits);
    if (!token || token->size() != nLength) {
        throw PeerError(
            "a piece of the token was lost on the way: copy all lines from \"morwen token\" to "
            "\"morwen end\"");
    }
    return std::move(*token);
}

}  // namespace morwen::doctor
