// The frame of a Kerberos context token (RFC 2743, RFC 4121): header, mechanism, kind, one Kerberos message.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

// As much as a token of the system with the same package may take.
inline constexpr uint32_t kMostTokenBytes = 48000;
// Longer ones are not read. That of a user in 6,000 groups has 49,000 bytes, and clients of systems with the same
// package make none above 48,000 unless they are told to.
inline constexpr size_t kMostReadBytes = size_t{50} * 1024;

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

}  // namespace morwen
