// The frame of a Kerberos context token (RFC 2743, RFC 4121): header, mechanism, kind, one Kerberos message.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

// As much as a token of the system with the same package may take.
inline constexpr uint32_t kMostTokenBytes = 48000;

enum class GssTokenKind : uint16_t { ApRequest = 0x0100, ApReply = 0x0200, KrbError = 0x0300 };

struct GssToken {
    GssTokenKind m_eKind;
    std::span<const uint8_t> m_message;  // within the token
};

// Nothing unless the bytes are exactly one frame of the Kerberos mechanism around exactly one message of the kind that
// it announces: libkrb5 itself would pass over bytes behind the message.
std::optional<GssToken> ReadGssToken(std::span<const uint8_t> i_token) noexcept;

// Throws std::bad_alloc.
std::vector<uint8_t> MakeGssToken(GssTokenKind i_eKind, std::span<const uint8_t> i_message);

// The encoded ticket within an AP-REQ; nothing when the bytes are not shaped like one.
std::optional<std::span<const uint8_t>> TicketInApRequest(std::span<const uint8_t> i_message) noexcept;

}  // namespace morwen
