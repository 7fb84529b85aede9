// A KRB-CRED message: tickets, and an encrypted part that says whose they are and which keys they come with.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

// Looked at before krb5_rd_cred, which follows a null pointer when a ticket is not described, or its client or server
// is not named: anybody who may log on could end the process with such a message. Views of the message's bytes.
class CredMessage {
public:
    // Nothing when the bytes are no such message in DER, or its encrypted part is longer than any that describes the
    // tickets of one client: each name in it takes libkrb5 many times its length.
    static std::optional<CredMessage> Read(std::span<const uint8_t> i_message) noexcept;

    int32_t EncryptionType() const noexcept { return m_nEncryptionType; }
    std::span<const uint8_t> EncryptedPart() const noexcept { return m_encryptedPart; }

    // The decrypted part describes each of the tickets, with its client and its server.
    bool IsDescribedBy(std::span<const uint8_t> i_part) const noexcept;

    // The same message with the decrypted part in the encrypted one's place: there are keys in it. Throws
    // std::bad_alloc.
    std::vector<uint8_t> WithPart(std::span<const uint8_t> i_part) const;

private:
    std::span<const uint8_t> m_tickets;
    size_t m_nTickets = 0;
    int32_t m_nEncryptionType = 0;
    std::span<const uint8_t> m_encryptedPart;
};

}  // namespace morwen
