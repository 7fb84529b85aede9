// MIC tokens (RFC 4121, section 4.2.6.1): who holds a logon's key has seen these bytes.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

// A copy of the key that an established logon has for messages, wiped with its owner. Constant, so that several threads
// may use it.
class MicKey {
public:
    // The exchange has sent and received all that it will. Nothing for keys of older types, whose tokens have another
    // form. i_bAcceptorKey: the service has chosen the key in its reply. Throws std::bad_alloc.
    static std::optional<MicKey> Of(krb5_context i_context, krb5_auth_context i_exchange, bool i_bAccepts,
                                    bool i_bAcceptorKey);
    MicKey(MicKey&&) noexcept = default;
    MicKey(const MicKey&) = delete;
    MicKey& operator=(const MicKey&) = delete;
    MicKey& operator=(MicKey&&) = delete;
    ~MicKey();

    // This side's. Empty when the key cannot be used. Throws std::bad_alloc.
    std::vector<uint8_t> Make(krb5_context i_context, std::span<const uint8_t> i_message) const;
    // Whether it is the other side's for this message. Its number is whatever the other side says: each login makes
    // one, with a key of its own.
    bool Check(krb5_context i_context, std::span<const uint8_t> i_message, std::span<const uint8_t> i_mic) const;

private:
    MicKey() = default;
    std::vector<uint8_t> Checksum(krb5_context i_context, std::span<const uint8_t> i_message,
                                  std::span<const uint8_t> i_header, bool i_bOfAcceptor) const;

    krb5_enctype m_nType = 0;
    std::vector<uint8_t> m_key;
    bool m_bAccepts = false;
    bool m_bAcceptorKey = false;
    uint32_t m_nNumber = 0;  // of this side's first token
};

}  // namespace morwen
