// A KRB-CRED message: tickets, and an encrypted part that says whose they are and which keys they come with.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace morwen {

// Looked at before krb5_rd_cred, which follows a null pointer when a ticket is not described, or its client or server
// is not named: anybody who may log on could end the process with such a message. Views of the message's bytes.
class CredMessage {
public:
    // Nothing when the bytes are no such message in DER, or its encrypted part is longer than any that describes the
    // tickets of one client: each name in it takes libkrb5 many times its length, and to decrypt it twice takes time.
    static std::optional<CredMessage> Read(std::span<const uint8_t> i_message) noexcept;

    int32_t EncryptionType() const noexcept { return m_nEncryptionType; }
    std::span<const uint8_t> EncryptedPart() const noexcept { return m_encryptedPart; }

    // The decrypted part describes each of the tickets, with its client and its server.
    bool IsDescribedBy(std::span<const uint8_t> i_part) const noexcept;

private:
    size_t m_nTickets = 0;
    int32_t m_nEncryptionType = 0;
    std::span<const uint8_t> m_encryptedPart;
};

}  // namespace morwen
