#include "platform/linux/logon/Acceptor.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/logon/Delegation.h"
#include "platform/linux/logon/PacCheck.h"
#include "platform/linux/wire/GssChecksum.h"
#include "platform/linux/wire/GssToken.h"

namespace morwen {

namespace {

// What a step of the pass needs to work and to say why it fails.
struct Exchange {
    krb5_context m_context;
    const AcceptorKeys& m_keys;
    std::span<const uint8_t> m_request;
    Krb5AuthContext m_authContext;
    Krb5Ticket m_ticket;  // once the request is accepted, decrypted; or to say why it is not

    std::string Text(std::string_view i_what) const {
        std::string text = "refused a logon";
        if (m_ticket->enc_part2 != nullptr) {
            text += " of " + PrincipalText(m_context, m_ticket->enc_part2->client);
        }
        return text + " to " + PrincipalText(m_context, m_ticket->server) + " with keytab " + m_keys.Name() + ": " +
               std::string(i_what);
    }
};

// The ticket as it came, which nobody may be able to open.
void TakeUnopenedTicket(Exchange& io_exchange) {
    const auto bytes = TicketInApRequest(io_exchange.m_request);
    const krb5_data data = bytes ? DataOf(*bytes) : krb5_data{};
    if (!bytes || krb5_decode_ticket(&data, io_exchange.m_ticket.Receive()) != 0) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token holds no Kerberos ticket");
    }
}

// Says which key versions the keytab has when the ticket's is not among them; else nothing.
std::string VersionText(const Exchange& i_exchange) {
    std::set<krb5_kvno> versions;
    for (const krb5_keytab_entry& entry : i_exchange.m_keys.Entries()) {
        if (krb5_principal_compare(i_exchange.m_context, entry.principal, i_exchange.m_ticket->server) != 0) {
            versions.insert(entry.vno);
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

// Says what is not permitted, and where an administrator can permit it; else nothing.
std::string CipherText(const krb5_ticket& i_ticket, krb5_error_code i_nCode) {
    std::array<char, 64> name{"?"};
    if (i_nCode != KRB5_NOPERM_ETYPE) {
        return {};
    }
    krb5_enctype_to_name(i_ticket.enc_part.enctype, FALSE, name.data(), name.size());
    return std::string(" by ticket (") + name.data() + ") or session key; see permitted_enctypes in krb5.conf";
}

// System errors come from libkrb5's own look at a PAC that cannot be read; everything else has a code of Kerberos.
SECURITY_STATUS StatusOfRequest(krb5_error_code i_nCode) {
    return i_nCode == ERANGE || i_nCode == EINVAL ? SEC_E_LOGON_DENIED : StatusFromKrb5(i_nCode);
}

[[noreturn]] void Refuse(Exchange& i_exchange, krb5_error_code i_nCode) {
    const std::string words = ErrorWords(i_exchange.m_context, i_nCode);
    TakeUnopenedTicket(i_exchange);
    // For the text alone: a ticket that can be opened tells who tried.
    static_cast<void>(
        krb5_server_decrypt_ticket_keytab(i_exchange.m_context, i_exchange.m_keys.Keytab(), i_exchange.m_ticket.get()));
    Fail(StatusOfRequest(i_nCode),
         i_exchange.Text(words + VersionText(i_exchange) + CipherText(*i_exchange.m_ticket.get(), i_nCode)));
}

void ReadRequest(Exchange& io_exchange) {
    krb5_error_code nCode = krb5_auth_con_init(io_exchange.m_context, io_exchange.m_authContext.Receive());
    if (nCode != 0) {
        Refuse(io_exchange, nCode);
    }
    // DO_TIME is what switches the replay cache on.
    krb5_auth_con_setflags(io_exchange.m_context, io_exchange.m_authContext.get(),
                           KRB5_AUTH_CONTEXT_DO_TIME | KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    krb5_auth_context authContext = io_exchange.m_authContext.get();
    const krb5_data request = DataOf(io_exchange.m_request);
    const auto ticket = TicketInApRequest(io_exchange.m_request);
    const auto service = ticket ? TicketService::Read(*ticket) : std::nullopt;
    // Without a name libkrb5 tries every key, which is for services known under another name or spelling.
    nCode = krb5_rd_req(io_exchange.m_context, &authContext, &request,
                        service ? io_exchange.m_keys.Find(*service) : nullptr, io_exchange.m_keys.Keytab(), nullptr,
                        io_exchange.m_ticket.Receive());
    if (nCode != 0) {
        Refuse(io_exchange, nCode);
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

// The flags, and the delegated tickets when there are any. The flags of the request itself are not protected, so a
// request without this checksum, which every peer of the mechanism sends, has nothing to go by.
GssChecksum ReadChecksum(const Exchange& i_exchange, const Krb5Authenticator& i_authenticator) {
    const krb5_checksum* const pChecksum = i_authenticator->checksum;
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
                                             std::optional<std::vector<uint8_t>> i_pacLogonInfo) {
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
    pIdentity->m_pacLogonInfo = std::move(i_pacLogonInfo);
    if (!i_checksum.m_delegation.empty()) {
        pIdentity->m_pDelegated =
            ReceivedTickets(i_exchange.m_context, i_exchange.m_authContext.get(), i_checksum.m_delegation, client);
        pLogon->m_nAttributes |= pIdentity->m_pDelegated != nullptr ? ASC_RET_DELEGATE : 0;
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
                                             std::span<const uint8_t> i_token, std::vector<uint8_t>& o_reply) {
    const auto token = ReadGssToken(i_token);
    if (!token || token->m_eKind != GssTokenKind::ApRequest) {
        Fail(SEC_E_INVALID_TOKEN, "the initiator's token is not the first token of a Kerberos logon");
    }
    UseMachineClock(i_context);
    Exchange exchange{i_context, i_keys, token->m_message, Krb5AuthContext(i_context), Krb5Ticket(i_context)};
    ReadRequest(exchange);
    CheckEnd(exchange);
    auto pacLogonInfo = CheckPac(i_context, i_keys, *exchange.m_ticket.get());
    Krb5Authenticator authenticator(i_context);
    if (const krb5_error_code nCode =
            krb5_auth_con_getauthenticator(i_context, exchange.m_authContext.get(), authenticator.Receive());
        nCode != 0) {
        FailKrb5(i_context, nCode, exchange.Text("reading the authenticator"));
    }
    const GssChecksum checksum = ReadChecksum(exchange, authenticator);
    auto pLogon = MakeContext(exchange, checksum, std::move(pacLogonInfo));
    o_reply = (checksum.m_nFlags & kGssMutual) != 0 ? MakeReply(exchange) : std::vector<uint8_t>();
    return pLogon;
}

}  // namespace morwen
