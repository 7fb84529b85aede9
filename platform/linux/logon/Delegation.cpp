#include "platform/linux/logon/Delegation.h"

#include <optional>
#include <string_view>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/log/STrace.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/wire/CredMessage.h"

namespace morwen {

namespace {

using ForwardedCredentials = Krb5Owner<krb5_creds**, krb5_free_tgt_creds>;

// A KRB-CRED has time stamps and numbers of its own, which say nothing within a message that is protected already.
class WithoutFlags {
public:
    WithoutFlags(krb5_context i_context, krb5_auth_context io_exchange) noexcept
        : m_context(i_context), m_exchange(io_exchange) {
        krb5_auth_con_getflags(m_context, m_exchange, &m_nFlags);
        krb5_auth_con_setflags(m_context, m_exchange, 0);
    }
    ~WithoutFlags() { krb5_auth_con_setflags(m_context, m_exchange, m_nFlags); }
    WithoutFlags(const WithoutFlags&) = delete;
    WithoutFlags& operator=(const WithoutFlags&) = delete;

private:
    krb5_context m_context;
    krb5_auth_context m_exchange;
    krb5_int32 m_nFlags = 0;
};

using GetKey = decltype(&krb5_auth_con_getkey_k);

// The library tries the initiator's sub-key first.
class WithoutSubKey {
public:
    WithoutSubKey(krb5_context i_context, krb5_auth_context io_exchange) noexcept
        : m_context(i_context), m_exchange(io_exchange) {
        krb5_auth_con_getrecvsubkey_k(m_context, m_exchange, &m_key);
        krb5_auth_con_setrecvsubkey_k(m_context, m_exchange, nullptr);
    }
    ~WithoutSubKey() {
        krb5_auth_con_setrecvsubkey_k(m_context, m_exchange, m_key);
        krb5_k_free_key(m_context, m_key);
    }
    WithoutSubKey(const WithoutSubKey&) = delete;
    WithoutSubKey& operator=(const WithoutSubKey&) = delete;

private:
    krb5_context m_context;
    krb5_auth_context m_exchange;
    krb5_key m_key = nullptr;
};

// Empty when the part is not encrypted with the key, or there is no key. Who calls clears it.
std::vector<uint8_t> Decrypted(krb5_context i_context, krb5_key i_key, const CredMessage& i_message) {
    const auto encrypted = i_message.EncryptedPart();
    std::vector<uint8_t> part(encrypted.size());
    const krb5_enc_data input{0, i_message.EncryptionType(), 0, DataOf(encrypted)};
    krb5_data output = DataOf(part);
    const bool bRead = i_key != nullptr &&
                       krb5_k_decrypt(i_context, i_key, KRB5_KEYUSAGE_KRB_CRED_ENCPART, nullptr, &input, &output) == 0;
    part.resize(bRead ? output.length : 0);
    return part;
}

krb5_error_code ReadMessage(krb5_context i_context, krb5_auth_context io_exchange, std::span<const uint8_t> i_message,
                            ForwardedCredentials& o_tickets) {
    const auto message = CredMessage::Read(i_message);
    if (!message) {
        return ASN1_BAD_FORMAT;
    }
    krb5_data bytes = DataOf(i_message);
    const WithoutFlags plain(i_context, io_exchange);
    // The session key is what nearly all use; a decryption in vain costs as much as one that succeeds.
    for (const GetKey getKey : {krb5_auth_con_getkey_k, krb5_auth_con_getrecvsubkey_k}) {
        Krb5Owner<krb5_key, krb5_k_free_key> key(i_context);
        getKey(i_context, io_exchange, key.Receive());
        if (std::vector<uint8_t> part = Decrypted(i_context, key.get(), *message); !part.empty()) {
            const bool bDescribed = message->IsDescribedBy(part);
            Harrowlib201::SecureWipe(part.data(), part.size());
            if (!bDescribed) {
                return ASN1_MISSING_FIELD;
            }
            std::optional<WithoutSubKey> sessionKey;
            if (getKey == krb5_auth_con_getkey_k) {
                sessionKey.emplace(i_context, io_exchange);
            }
            return krb5_rd_cred(i_context, io_exchange, &bytes, o_tickets.Receive(), nullptr);
        }
    }
    // Some peers send the KRB-CRED unencrypted, which an auth context without keys reads.
    Krb5AuthContext keyless(i_context);
    if (!message->IsDescribedBy(message->EncryptedPart())) {
        return KRB5KRB_AP_ERR_BAD_INTEGRITY;
    }
    if (const krb5_error_code nCode = krb5_auth_con_init(i_context, keyless.Receive()); nCode != 0) {
        return nCode;
    }
    krb5_auth_con_setflags(i_context, keyless.get(), 0);
    return krb5_rd_cred(i_context, keyless.get(), &bytes, o_tickets.Receive(), nullptr);
}

// Of the user's own realm: nobody else says whose KDCs are asked.
bool IsTicketGranting(const krb5_principal_data& i_server, const krb5_principal_data& i_client) {
    const auto text = [](const krb5_data& i_part) { return std::string_view(i_part.data, i_part.length); };
    return i_server.length == 2 && text(i_server.data[0]) == KRB5_TGS_NAME &&
           text(i_server.data[1]) == text(i_client.realm) && text(i_server.realm) == text(i_client.realm);
}

}  // namespace

std::shared_ptr<DelegatedTickets> ReceivedTickets(krb5_context i_context, krb5_auth_context io_exchange,
                                                  std::span<const uint8_t> i_message, krb5_const_principal i_client) {
    const auto check = [&](krb5_error_code i_nCode) {
        if (i_nCode != 0) {
            FailKrb5(i_context, i_nCode,
                     "reading the tickets that " + PrincipalText(i_context, i_client) + " delegates");
        }
    };
    ForwardedCredentials tickets(i_context);
    check(ReadMessage(i_context, io_exchange, i_message, tickets));
    krb5_ccache cache = nullptr;
    check(krb5_cc_new_unique(i_context, "MEMORY", nullptr, &cache));
    KeptMemoryCache owner(cache);
    krb5_principal_data client = *i_client;
    check(krb5_cc_initialize(i_context, cache, &client));
    bool bKept = false;
    for (krb5_creds** ppTicket = tickets.get(); *ppTicket != nullptr; ++ppTicket) {
        if (krb5_principal_compare(i_context, (*ppTicket)->client, i_client) == 0) {
            Fail(SEC_E_LOGON_DENIED, PrincipalText(i_context, i_client) + " delegates a ticket of " +
                                         PrincipalText(i_context, (*ppTicket)->client));
        }
        // One, for the KDC. A ticket for a service could be of the user's own making, and the service's answer too.
        if (!bKept && IsTicketGranting(*(*ppTicket)->server, *i_client)) {
            check(krb5_cc_store_cred(i_context, cache, *ppTicket));
            bKept = true;
        }
    }
    if (!bKept) {
        S_TRACE("ssoplugin: ReceivedTickets() -- %1 delegates no ticket-granting ticket.",
                PrincipalText(i_context, i_client));
        return nullptr;
    }
    Krb5String name(i_context);
    check(krb5_cc_get_full_name(i_context, cache, name.Receive()));
    return std::make_shared<DelegatedTickets>(std::move(owner), name.get());
}

}  // namespace morwen
