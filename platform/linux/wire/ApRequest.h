// An AP-REQ as bytes: its two encrypted parts, and what is in these once they are decrypted.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace morwen {

// Views of the message's bytes, as everything here.
struct EncryptedPart {
    int32_t m_nType = 0;         // of the encryption
    uint32_t m_nKeyVersion = 0;  // 0 when there is none
    std::span<const uint8_t> m_cipher;
};

struct ApRequest {
    std::span<const uint8_t> m_ticket;  // encoded, as it goes into TicketService
    EncryptedPart m_ticketPart;
    EncryptedPart m_authenticator;

    // Nothing when the bytes are no such message in DER.
    static std::optional<ApRequest> Read(std::span<const uint8_t> i_message) noexcept;
};

struct TicketPart {
    int32_t m_nSessionKeyType = 0;
    std::span<const uint8_t> m_sessionKey;
    std::span<const uint8_t> m_authorizationData;  // empty when there is none

    // From an EncTicketPart; nothing when the bytes are not one in DER. Bytes behind it are the cipher's padding.
    static std::optional<TicketPart> Read(std::span<const uint8_t> i_part) noexcept;
};

// Of an authenticator; empty when it has none, nothing when the bytes are no authenticator in DER.
std::optional<std::span<const uint8_t>> AuthorizationDataOf(std::span<const uint8_t> i_authenticator) noexcept;

// Elements within elements may be no deeper, and no more in all, than anybody has a use for: a KDC's are two or three
// deep, and a few. libkrb5 decodes one within the other, each time all that is in it, and keeps a copy of each, so that
// a client who has put a thousand into each other makes it take a thousand times the memory, and the whole stack. The
// walk itself keeps to a few hundred bytes. Nothing is bounded that is not in DER.
bool IsBoundedAuthorizationData(std::span<const uint8_t> i_data) noexcept;

}  // namespace morwen
