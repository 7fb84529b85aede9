#include "platform/linux/logon/Acceptor.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "platform/linux/contexts/FileSizeSignal.h"
#include "platform/linux/delegation/LogonEvidence.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/logon/Delegation.h"
#include "platform/linux/logon/LocalAccount.h"
#include "platform/linux/logon/TicketOpening.h"
#include "platform/linux/pac/PacCheck.h"
#include "platform/linux/wire/GssChecksum.h"
#include "platform/linux/wire/GssToken.h"

namespace morwen {

namespace {

// What a step of the pass needs to work and to say why it fails.
struct Exchange {
    krb5_context m_context;
    const AcceptorKeys& m_keys;
    const ApRequest& m_request;
    Krb5AuthContext m_authContext;
    Krb5Ticket m_ticket;  // once the request is accepted, decrypted; or to say why it is not
    Krb5Authenticator m_authenticator;
    const AcceptorKeys::Service* m_pService = nullptr;
    const krb5_keyblock* m_pKey = nullptr;  // that has opened the ticket

    std::string Text(std::string_view i_what) const {
        std::string text = "refused a logon";
        if (m_authenticator) {
            text += " of " + PrincipalText(m_context, m_authenticator->client);
        }
        return text + " to " + PrincipalText(m_context, m_ticket->server) + " with keytab " + m_keys.Name() + ": " +
               std::string(i_what);
    }
};

// The ticket as it came, which nobody may be able to open.
void TakeUnopenedTicket(Exchange& io_exchange) {
    const krb5_data data = DataOf(io_exchange.m_request.m_ticket);
    if (krb5_decode_ticket(&data, io_exchange.m_ticket.Receive()) != 0) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token holds no Kerberos ticket");
    }
}

// Says which key versions the keytab has when the ticket's is not among them; else nothing.
std::string VersionText(const Exchange& i_exchange) {
    std::set<krb5_kvno> versions;
    if (i_exchange.m_pService != nullptr) {
        for (const krb5_keytab_entry* const pEntry : i_exchange.m_pService->m_entries) {
            versions.insert(pEntry->vno);
        }
    }
    const krb5_kvno nWanted = i_exchange.m_ticket->enc_part.kvno;
    if (versions.empty() || versions.contains(nWanted)) {
        return {};
    }
    std::string text = "; the ticket is for key version " + std::to_string(nWanted) + ", the keytab has";
    for (const krb5_kvno nVersion : versions) {
        text += " " + std::to_string(nVersion);
    }
    return text;
}

// Says which services the keytab has when the ticket's is none of them; else nothing.
std::string ServicesText(const Exchange& i_exchange, krb5_error_code i_nCode) {
    constexpr size_t kMostNames = 5;
    std::set<std::string> names;
    if (i_nCode == KRB5KRB_AP_ERR_NOT_US) {
        for (const krb5_keytab_entry& entry : i_exchange.m_keys.Entries()) {
            if (names.insert(PrincipalText(i_exchange.m_context, entry.principal)).second &&
                names.size() > kMostNames) {
                break;
            }
        }
    }
    std::string text;
    for (const std::string& name : names) {
        text += text.empty() ? "; the keytab has " : ", ";
        text += names.size() > kMostNames && name == *names.rbegin() ? "others" : name;
    }
    return text;
}

// Says what is not permitted, and where an administrator can permit it; else nothing.
std::string CipherText(const krb5_ticket& i_ticket, krb5_error_code i_nCode) {
    std::array<char, 64> name{"?"};
    if (i_nCode != KRB5_NOPERM_ETYPE) {
        return {};
    }
    krb5_enctype_to_name(i_ticket.enc_part.enctype, FALSE, name.data(), name.size());
    return std::string(" by ticket (") + name.data() + ") or session key; see permitted_enctypes in krb5.conf";
}

// Says that it is the ticket which cannot be opened, where the library was given the key: it forgets that one as soon
// as it has opened the ticket. Else nothing.
std::string KeyText(const Exchange& i_exchange, krb5_error_code i_nCode) {
    krb5_key key = nullptr;
    const bool bUnopened =
        i_nCode == KRB5KRB_AP_ERR_BAD_INTEGRITY && i_exchange.m_pKey != nullptr && i_exchange.m_authContext &&
        krb5_auth_con_getkey_k(i_exchange.m_context, i_exchange.m_authContext.get(), &key) == 0 && key != nullptr;
    krb5_k_free_key(i_exchange.m_context, key);
    return bUnopened ? "; the keytab's key for the service does not open the ticket: the account has got another key, "
                       "or the token was changed on its way"
                     : "";
}

// System errors come from libkrb5's own look at a PAC that cannot be read; everything else has a code of Kerberos.
SECURITY_STATUS StatusOfRequest(krb5_error_code i_nCode) {
    return i_nCode == ERANGE || i_nCode == EINVAL ? SEC_E_LOGON_DENIED : StatusFromKrb5(i_nCode);
}

[[noreturn]] void Refuse(Exchange& io_exchange, krb5_error_code i_nCode) {
    const std::string words = ErrorWords(io_exchange.m_context, i_nCode);
    TakeUnopenedTicket(io_exchange);
    // Nothing is decrypted once more for the sake of the text. A replay is one of an authenticator that has been
    // opened, and that of the ticket's client; the clock comes after it.
    if (i_nCode == KRB5KRB_AP_ERR_REPEAT || i_nCode == KRB5KRB_AP_ERR_SKEW) {
        static_cast<void>(krb5_auth_con_getauthenticator(io_exchange.m_context, io_exchange.m_authContext.get(),
                                                         io_exchange.m_authenticator.Receive()));
    }
    Fail(StatusOfRequest(i_nCode),
         io_exchange.Text(words + KeyText(io_exchange, i_nCode) + ServicesText(io_exchange, i_nCode) +
                          VersionText(io_exchange) + CipherText(*io_exchange.m_ticket.get(), i_nCode)));
}

// As the library finds it.
const krb5_keyblock* KeyOfTicket(const Exchange& i_exchange) {
    const krb5_keytab_entry* pFound = nullptr;
    const krb5_enc_data& part = i_exchange.m_ticket->enc_part;
    for (const krb5_keytab_entry* const pEntry : i_exchange.m_pService->m_entries) {
        if (pEntry->key.enctype == part.enctype && (part.kvno == 0 || pEntry->vno == part.kvno) &&
            (pFound == nullptr || pEntry->vno > pFound->vno)) {
            pFound = pEntry;
        }
    }
    return pFound != nullptr ? &pFound->key : nullptr;
}

// A key that is already known is given to the library as that of an exchange between users, for which it searches no
// keytab, however many keys are in that.
krb5_error_code UseKey(Exchange& io_exchange, const krb5_keyblock& i_key) {
    krb5_keyblock key = i_key;  // copied by the library
    return krb5_auth_con_setuseruserkey(io_exchange.m_context, io_exchange.m_authContext.get(), &key);
}

void ReadRequest(Exchange& io_exchange, std::span<const uint8_t> i_request) {
    krb5_error_code nCode = krb5_auth_con_init(io_exchange.m_context, io_exchange.m_authContext.Receive());
    if (nCode != 0) {
        Refuse(io_exchange, nCode);
    }
    // DO_TIME is what switches the replay cache on.
    krb5_auth_con_setflags(io_exchange.m_context, io_exchange.m_authContext.get(),
                           KRB5_AUTH_CONTEXT_DO_TIME | KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    const auto service = TicketService::Read(io_exchange.m_request.m_ticket);
    if (!service) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token holds no Kerberos ticket for a service");
    }
    io_exchange.m_pService = io_exchange.m_keys.Find(*service);
    if (io_exchange.m_pService == nullptr) {
        Refuse(io_exchange, KRB5KRB_AP_ERR_NOT_US);
    }
    if (i_request.size() > kMostUnseenBytes) {
        nCode = OpenTicket(io_exchange.m_context, *io_exchange.m_pService, io_exchange.m_request, io_exchange.m_pKey);
    } else {
        io_exchange.m_pKey = OnlyKeyFor(*io_exchange.m_pService, io_exchange.m_request.m_ticketPart);
    }
    if (nCode == 0 && io_exchange.m_pKey != nullptr) {
        nCode = UseKey(io_exchange, *io_exchange.m_pKey);
    }
    if (nCode == 0) {
        krb5_auth_context authContext = io_exchange.m_authContext.get();
        const krb5_data request = DataOf(i_request);
        const FileSizeSignal heldBack;  // of the replay cache
        nCode = krb5_rd_req(io_exchange.m_context, &authContext, &request, io_exchange.m_pService->m_pName,
                            io_exchange.m_keys.Keytab(), nullptr, io_exchange.m_ticket.Receive());
    }
    if (nCode == 0) {
        nCode = krb5_auth_con_getauthenticator(io_exchange.m_context, io_exchange.m_authContext.get(),
                                               io_exchange.m_authenticator.Receive());
    }
    if (nCode != 0) {
        Refuse(io_exchange, nCode);
    }
    if (io_exchange.m_pKey == nullptr) {
        io_exchange.m_pKey = KeyOfTicket(io_exchange);
    }
}

// libkrb5 lets a ticket be used for some minutes after its end, for clocks that differ; what is granted here ends with
// it.
void CheckEnd(const Exchange& i_exchange) {
    const int64_t nEnd = SecondsOf(i_exchange.m_ticket->enc_part2->times.endtime);
    if (nEnd <= Now(i_exchange.m_context)) {
        Fail(SEC_E_CONTEXT_EXPIRED, i_exchange.Text("the ticket expired at " + TimeText(nEnd)));
    }
}

// Whoever has no name has no account either, and no identity that a host could act upon.
void CheckNamed(const Exchange& i_exchange) {
    const krb5_enc_tkt_part& ticket = *i_exchange.m_ticket->enc_part2;
    const krb5_principal_data& client = *ticket.client;
    const auto isText = [](const krb5_data& i_part, std::string_view i_text) {
        return std::string_view(i_part.data, i_part.length) == i_text;
    };
    const bool bAnonymousName = client.length == 2 && isText(client.data[0], KRB5_WELLKNOWN_NAMESTR) &&
                                isText(client.data[1], KRB5_ANONYMOUS_PRINCSTR);
    if ((ticket.flags & TKT_FLG_ANONYMOUS) != 0 || bAnonymousName || isText(client.realm, KRB5_ANONYMOUS_REALMSTR)) {
        Fail(SEC_E_LOGON_DENIED, i_exchange.Text("anonymous tickets are not accepted"));
    }
}

// The flags, and the delegated tickets when there are any. The flags of the request itself are not protected, so a
// request without this checksum, which every peer of the mechanism sends, has nothing to go by.
GssChecksum ReadChecksum(const Exchange& i_exchange) {
    const krb5_checksum* const pChecksum = i_exchange.m_authenticator->checksum;
    if (pChecksum == nullptr || pChecksum->checksum_type != kGssChecksumType) {
        Fail(SEC_E_INVALID_TOKEN, i_exchange.Text("the token lacks the checksum of the mechanism"));
    }
    const std::span<const uint8_t> bytes(pChecksum->contents, pChecksum->length);
    const auto checksum = ReadGssChecksum(bytes);
    if (!checksum) {
        Fail(SEC_E_INVALID_TOKEN, i_exchange.Text(ReadGssFlags(bytes) ? "the token's delegation field cannot be read"
                                                                      : "the token's flags cannot be read"));
    }
    return *checksum;
}

// The check of a ticket that has been checked with the same key before would find the same again.
std::shared_ptr<const PacInformation> PacOf(const Exchange& i_exchange) {
    KeptPacs& kept = i_exchange.m_keys.Pacs();
    const krb5_enc_data& sealed = i_exchange.m_ticket->enc_part;
    auto pPac = kept.Find(sealed, i_exchange.m_pKey);
    if (pPac == nullptr) {
        pPac = std::make_shared<const PacInformation>(
            CheckPac(i_exchange.m_context, i_exchange.m_pKey, *i_exchange.m_ticket.get()));
        kept.Keep(sealed, i_exchange.m_pKey, pPac);
    }
    return pPac;
}

// A client between whom and this service somebody stands is bound to that one's channel.
void CheckChannel(const Exchange& i_exchange, const GssChecksum& i_checksum, const LogonTerms& i_terms) {
    if (!i_terms.m_channel) {
        return;
    }
    if (i_checksum.m_channel != ChannelHash{}) {
        // The same channel, whichever way the client says that it has no addresses.
        for (const NoAddress eAddresses : {NoAddress::Unspecified, NoAddress::Null}) {
            if (i_checksum.m_channel ==
                HashChannel(i_exchange.m_context, {eAddresses, i_terms.m_channel->m_applicationData})) {
                return;
            }
        }
        Fail(SEC_E_BAD_BINDINGS, i_exchange.Text("the client's channel bindings are of another channel than this one"));
    }
    if ((i_terms.m_nRequirements & ASC_REQ_ALLOW_MISSING_BINDINGS) == 0) {
        Fail(SEC_E_BAD_BINDINGS, i_exchange.Text("the client sends no channel bindings, which the service requires"));
    }
}

std::vector<uint8_t> MakeReply(const Exchange& i_exchange) {
    krb5_auth_con_setflags(i_exchange.m_context, i_exchange.m_authContext.get(),
                           KRB5_AUTH_CONTEXT_DO_SEQUENCE | KRB5_AUTH_CONTEXT_USE_SUBKEY);
    Krb5Data message(i_exchange.m_context);
    const krb5_error_code nCode = krb5_mk_rep(i_exchange.m_context, i_exchange.m_authContext.get(), message.Receive());
    if (nCode != 0) {
        FailKrb5(i_exchange.m_context, nCode, i_exchange.Text("making the reply"));
    }
    return MakeGssToken(GssTokenKind::ApReply, BytesOf(*message));
}

// Clocks corrected by some KDC's answer are for the tickets of its clients; a service judges by the machine's clock.
void UseMachineClock(krb5_context i_context) {
    timespec now{};
    krb5_timestamp nSeconds = 0;
    krb5_int32 nMicroseconds = 0;
    if (krb5_get_time_offsets(i_context, &nSeconds, &nMicroseconds) == 0 && (nSeconds != 0 || nMicroseconds != 0) &&
        clock_gettime(CLOCK_REALTIME, &now) == 0) {
        static_cast<void>(krb5_set_real_time(i_context, static_cast<krb5_timestamp>(now.tv_sec),
                                             static_cast<krb5_int32>(now.tv_nsec / 1000)));
    }
}

std::shared_ptr<SecurityContext> MakeContext(const Exchange& i_exchange, const GssChecksum& i_checksum,
                                             const PacInformation& i_pac) {
    const krb5_enc_tkt_part& ticket = *i_exchange.m_ticket->enc_part2;
    auto pLogon = std::make_shared<SecurityContext>();
    pLogon->m_bAccepted = true;
    pLogon->m_nStart = SecondsOf(ticket.times.starttime != 0 ? ticket.times.starttime : ticket.times.authtime);
    pLogon->m_nEnd = SecondsOf(ticket.times.endtime);
    const Harrowlib201::CS_Locker locker(pLogon->m_section);
    krb5_principal client = nullptr;
    if (const krb5_error_code nCode = krb5_copy_principal(i_exchange.m_context, ticket.client, &client); nCode != 0) {
        FailKrb5(i_exchange.m_context, nCode, i_exchange.Text("keeping the client's name"));
    }
    pLogon->m_client = KeptPrincipal(client);
    auto pIdentity = std::make_shared<TokenIdentity>();
    pIdentity->m_pPacLogonInfo = i_pac.m_pLogonInfo;
    if (i_pac.m_accountName) {
        NoteNamingRealm(*client);
    }
    pLogon->m_accountName = i_pac.m_accountName;
    if (!i_checksum.m_delegation.empty()) {
        pIdentity->m_pDelegated =
            ReceivedTickets(i_exchange.m_context, i_exchange.m_authContext.get(), i_checksum.m_delegation, client);
        pLogon->m_nAttributes |= pIdentity->m_pDelegated != nullptr ? ASC_RET_DELEGATE : 0;
    }
    if (pIdentity->m_pDelegated == nullptr) {
        pIdentity->m_pEvidence = LogonEvidence::Of(i_exchange.m_request.m_ticket, ticket);
    }
    if ((i_checksum.m_nFlags & kGssMutual) != 0) {
        pLogon->m_nAttributes |= ASC_RET_MUTUAL_AUTH;
    }
    pLogon->m_pIdentity = std::move(pIdentity);
    pLogon->m_bEstablished = true;
    return pLogon;
}

}  // namespace

std::shared_ptr<SecurityContext> AcceptToken(krb5_context i_context, const AcceptorKeys& i_keys,
                                             std::span<const uint8_t> i_token, const LogonTerms& i_terms,
                                             std::vector<uint8_t>& o_reply) {
    if (i_token.size() > kMostReadBytes) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token is longer than " + std::to_string(kMostReadBytes) + " bytes");
    }
    const auto token = ReadGssToken(i_token);
    if (!token || token->m_eKind != GssTokenKind::ApRequest) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token is not the first token of a Kerberos logon");
    }
    const auto request = ApRequest::Read(token->m_message);
    if (!request) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token holds no Kerberos ticket");
    }
    UseMachineClock(i_context);
    Exchange exchange{
        i_context, i_keys, *request, Krb5AuthContext(i_context), Krb5Ticket(i_context), Krb5Authenticator(i_context)};
    ReadRequest(exchange, token->m_message);
    CheckEnd(exchange);
    CheckNamed(exchange);
    const auto pPac = PacOf(exchange);
    const GssChecksum checksum = ReadChecksum(exchange);
    CheckChannel(exchange, checksum, i_terms);
    auto pLogon = MakeContext(exchange, checksum, *pPac);
    const bool bMutual = (checksum.m_nFlags & kGssMutual) != 0;
    o_reply = bMutual ? MakeReply(exchange) : std::vector<uint8_t>();
    if ((i_terms.m_nRequirements & ASC_REQ_INTEGRITY) != 0 && (checksum.m_nFlags & kGssIntegrity) != 0) {
        const Harrowlib201::CS_Locker locker(pLogon->m_section);
        if (auto mic = MicKey::Of(i_context, exchange.m_authContext.get(), true, bMutual)) {
            pLogon->m_mic.emplace(std::move(*mic));
            pLogon->m_nAttributes |= ASC_RET_INTEGRITY;
        }
    }
    return pLogon;
}

}  // namespace morwen
