#include "platform/linux/logon/Delegation.h"

#include <string_view>
#include <utility>
#include <vector>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/log/STrace.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/wire/CredMessage.h"

namespace morwen {

namespace {

using ForwardedCredentials = Krb5Owner<krb5_creds**, krb5_free_tgt_creds>;

// Bytes with keys in them, which do not stay behind.
class Secret {
public:
    explicit Secret(std::vector<uint8_t>&& i_bytes) noexcept : m_bytes(std::move(i_bytes)) {}
    ~Secret() { Harrowlib201::SecureWipe(m_bytes.data(), m_bytes.size()); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    std::span<uint8_t> get() noexcept { return m_bytes; }

private:
    std::vector<uint8_t> m_bytes;
};

// The part's length when it is encrypted with the key; 0 when it is not, or there is no key.
size_t Decrypt(krb5_context i_context, krb5_key i_key, const CredMessage& i_message, std::span<uint8_t> o_part) {
    const krb5_enc_data input{0, i_message.EncryptionType(), 0, DataOf(i_message.EncryptedPart())};
    krb5_data output = DataOf(o_part);
    return i_key != nullptr &&
                   krb5_k_decrypt(i_context, i_key, KRB5_KEYUSAGE_KRB_CRED_ENCPART, nullptr, &input, &output) == 0
               ? output.length
               : 0;
}

// What is in the clear by now, which the library's call reads where there are no keys. It would try them once more, and
// follow a null pointer where the part does not describe what it should.
krb5_error_code ReadPart(krb5_context i_context, const CredMessage& i_message, std::span<const uint8_t> i_part,
                         ForwardedCredentials& o_tickets) {
    Secret message(i_message.WithPart(i_part));
    Krb5AuthContext keyless(i_context);
    if (const krb5_error_code nCode = krb5_auth_con_init(i_context, keyless.Receive()); nCode != 0) {
        return nCode;
    }
    // Time stamps and numbers of its own would say nothing within a message that is protected already.
    krb5_auth_con_setflags(i_context, keyless.get(), 0);
    krb5_data bytes = DataOf(message.get());
    return krb5_rd_cred(i_context, keyless.get(), &bytes, o_tickets.Receive(), nullptr);
}

krb5_error_code ReadMessage(krb5_context i_context, krb5_auth_context i_exchange, std::span<const uint8_t> i_message,
                            ForwardedCredentials& o_tickets) {
    const auto message = CredMessage::Read(i_message);
    if (!message) {
        return ASN1_BAD_FORMAT;
    }
    Secret room(std::vector<uint8_t>(message->EncryptedPart().size()));
    // The session key is what nearly all use; a decryption in vain costs as much as one that succeeds.
    for (const auto getKey : {krb5_auth_con_getkey_k, krb5_auth_con_getrecvsubkey_k}) {
        Krb5Owner<krb5_key, krb5_k_free_key> key(i_context);
        getKey(i_context, i_exchange, key.Receive());
        if (const size_t nLength = Decrypt(i_context, key.get(), *message, room.get()); nLength != 0) {
            const auto part = room.get().first(nLength);
            return message->IsDescribedBy(part) ? ReadPart(i_context, *message, part, o_tickets)
                                                : krb5_error_code{ASN1_MISSING_FIELD};
        }
    }
    // Some peers send the KRB-CRED unencrypted.
    return message->IsDescribedBy(message->EncryptedPart())
               ? ReadPart(i_context, *message, message->EncryptedPart(), o_tickets)
               : krb5_error_code{KRB5KRB_AP_ERR_BAD_INTEGRITY};
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
