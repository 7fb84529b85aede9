// What an initiator puts in place of the authenticator's checksum (RFC 4121, type 0x8003): the channel's hash, flags
// and delegated tickets.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

inline constexpr int32_t kGssChecksumType = 0x8003;

inline constexpr uint32_t kGssDelegate = 1;
inline constexpr uint32_t kGssMutual = 2;
inline constexpr uint32_t kGssIntegrity = 32;

struct GssChecksum {
    uint32_t m_nFlags = 0;
    // A KRB-CRED message when kGssDelegate is set, else empty; no longer than the two bytes of its length can say.
    std::span<const uint8_t> m_delegation = {};
    std::array<uint8_t, 16> m_channel = {};  // of the channel bindings; zero without
};

// The flags alone; nothing when the bytes do not hold them.
std::optional<uint32_t> ReadGssFlags(std::span<const uint8_t> i_bytes) noexcept;

// Nothing when the bytes are cut short or inconsistent. Extensions behind the delegation are passed over.
std::optional<GssChecksum> ReadGssChecksum(std::span<const uint8_t> i_bytes) noexcept;

// Throws std::bad_alloc.
std::vector<uint8_t> MakeGssChecksum(const GssChecksum& i_checksum);

}  // namespace morwen
