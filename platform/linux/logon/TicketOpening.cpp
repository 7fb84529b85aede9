#include "platform/linux/logon/TicketOpening.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "harrow/lifetime/SecureWipe.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// What is spent on finding a key, in bytes to decrypt: one key for the longest token, some sixty for a usual one.
constexpr size_t kMostTriedBytes = size_t{100} * 1024;
constexpr size_t kBytesOfATry = 1024;  // what it costs besides

// Decrypted bytes, which do not stay behind.
class Plain {
public:
    explicit Plain(size_t i_nRoom) : m_bytes(i_nRoom) {}
    ~Plain() { Harrowlib201::SecureWipe(m_bytes.data(), m_bytes.size()); }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;

    krb5_error_code Decrypt(krb5_context i_context, const krb5_keyblock& i_key, krb5_keyusage i_nUsage,
                            const EncryptedPart& i_part) {
        const krb5_enc_data input{0, i_part.m_nType, 0, DataOf(i_part.m_cipher)};
        krb5_data output = DataOf(m_bytes);
        const krb5_error_code nCode = krb5_c_decrypt(i_context, &i_key, i_nUsage, nullptr, &input, &output);
        m_nLength = nCode == 0 ? output.length : 0;
        return nCode;
    }
    std::span<const uint8_t> get() const noexcept { return std::span(m_bytes).first(m_nLength); }

private:
    std::vector<uint8_t> m_bytes;
    size_t m_nLength = 0;
};

// Those that the ticket may be encrypted with, no more than i_nMost: one, unless it names no version.
std::vector<const krb5_keyblock*> KeysFor(const AcceptorKeys::Service& i_service, const EncryptedPart& i_ticket,
                                          size_t i_nMost) {
    std::vector<const krb5_keyblock*> keys;
    for (const krb5_keytab_entry* const pEntry : i_service.m_entries) {
        const bool bVersionFits = i_ticket.m_nKeyVersion == 0 || pEntry->vno == i_ticket.m_nKeyVersion;
        if (keys.size() < i_nMost && bVersionFits && pEntry->key.enctype == i_ticket.m_nType) {
            keys.push_back(&pEntry->key);
        }
    }
    return keys;
}

// 0, or the code when the authenticator is not encrypted with the ticket's key.
krb5_error_code CheckBounds(krb5_context i_context, const ApRequest& i_request, std::span<const uint8_t> i_ticketPart) {
    const auto check = [](bool i_bBounded, const char* i_pszWhere) {
        if (!i_bBounded) {
            Fail(SEC_E_INVALID_TOKEN, std::string("refused a logon: the authorization data in the ") + i_pszWhere +
                                          " is nested deeper than any that is of use, or cannot be read");
        }
    };
    const auto ticket = TicketPart::Read(i_ticketPart);
    check(ticket && IsBoundedAuthorizationData(ticket->m_authorizationData), "ticket");
    krb5_keyblock key{};
    key.enctype = ticket->m_nSessionKeyType;
    key.length = static_cast<unsigned>(ticket->m_sessionKey.size());
    key.contents = const_cast<krb5_octet*>(ticket->m_sessionKey.data());  // read only
    Plain authenticator(i_request.m_authenticator.m_cipher.size());
    const krb5_error_code nCode =
        authenticator.Decrypt(i_context, key, KRB5_KEYUSAGE_AP_REQ_AUTH, i_request.m_authenticator);
    const auto data = nCode == 0 ? AuthorizationDataOf(authenticator.get()) : std::nullopt;
    check(nCode != 0 || (data && IsBoundedAuthorizationData(*data)), "authenticator");
    return nCode;
}

}  // namespace

const krb5_keyblock* OnlyKeyFor(const AcceptorKeys::Service& i_service, const EncryptedPart& i_ticket) {
    const auto keys = KeysFor(i_service, i_ticket, 2);
    return keys.size() == 1 ? keys.front() : nullptr;
}

krb5_error_code OpenTicket(krb5_context i_context, const AcceptorKeys::Service& i_service, const ApRequest& i_request,
                           const krb5_keyblock*& o_pKey) {
    krb5_error_code nCode = KRB5KRB_AP_ERR_BADKEYVER;
    const size_t nBytes = i_request.m_ticketPart.m_cipher.size();
    Plain ticket(nBytes);
    const size_t nMost = std::max<size_t>(1, kMostTriedBytes / (nBytes + kBytesOfATry));
    for (const krb5_keyblock* const pKey : KeysFor(i_service, i_request.m_ticketPart, nMost)) {
        nCode = ticket.Decrypt(i_context, *pKey, KRB5_KEYUSAGE_KDC_REP_TICKET, i_request.m_ticketPart);
        if (nCode == 0) {
            o_pKey = pKey;
            nCode = CheckBounds(i_context, i_request, ticket.get());
        }
        if (nCode == ENOMEM) {
            throw std::bad_alloc();
        }
        if (o_pKey != nullptr) {
            return nCode;
        }
    }
    return nCode;
}

}  // namespace morwen
