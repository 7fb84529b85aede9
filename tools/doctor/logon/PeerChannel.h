// What the two halves of a logon say to each other, as lines of text.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace morwen::doctor {

// The other side is gone, too slow, or says what is no line of ours.
class PeerError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Every message is a line "morwen WORD TEXT"; under "morwen token BYTES" stand lines of base64 and "morwen end". Other
// lines and blanks around them are passed over, so that people can copy with the mouse; a piece that got lost is
// noticed. Nothing is read beyond fixed bounds, whatever the peer claims.
class PeerChannel {
public:
    using Clock = std::chrono::steady_clock;

    struct Message {
        std::string m_word;              // "token", "done", "accepted", "refused"
        std::vector<uint8_t> m_token{};  // of "token"
    };

    // Borrows the descriptors, which may be one socket. Every wait ends at the deadline.
    PeerChannel(int i_nIn, int i_nOut, Clock::time_point i_deadline);

    // All throw PeerError and std::bad_alloc.
    void SendToken(std::span<const uint8_t> i_token);
    void Send(std::string_view i_word);
    Message Receive();

private:
    void Await(int i_nDescriptor, short i_nEvents) const;
    void Write(std::string_view i_text);
    std::string ReadLine();
    std::vector<uint8_t> ReceiveToken(const std::string& i_length);

    int m_nIn;
    int m_nOut;
    Clock::time_point m_deadline;
    std::string m_unread;
};

}  // namespace morwen::doctor
