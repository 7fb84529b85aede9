#include "platform/linux/logon/Initiator.h"

#include <utility>

#include "harrow/log/STrace.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/wire/GssChecksum.h"
#include "platform/linux/wire/GssToken.h"

namespace morwen {

namespace {

// What the checksum is made from, and the checksum itself, which libkrb5 reads until the request is built.
struct ChecksumRequest {
    krb5_creds* m_pServiceTicket;
    std::shared_ptr<const ForwardedTicket> m_pForwarded;  // null: nothing is delegated
    bool m_bMutual;
    bool m_bIntegrity;
    ChannelHash m_channel;

    std::vector<uint8_t> m_bytes;
    krb5_data m_data{};
};

// What goes to the service with the logon; null when there is nothing, or no room for it.
std::shared_ptr<const ForwardedTicket> TicketToDelegate(krb5_context i_context, LogonTickets& io_tickets,
                                                        const std::string& i_targetName,
                                                        const LogonTickets::ServiceTicket& i_ticket) {
    // The two tickets share one token with their wrapping and the authenticator's own fields.
    constexpr size_t kRoomForTheRest = 2048;
    constexpr size_t kMostOfBoth = kMostTokenBytes - kRoomForTheRest;
    auto pForwarded = io_tickets.Forwarded(i_context, i_targetName, i_ticket);
    if (pForwarded != nullptr && pForwarded->size() + i_ticket.m_credentials.get()->ticket.length > kMostOfBoth) {
        S_TRACE("ssoplugin: TicketToDelegate() -- Going on without delegation to %1: the message is too long",
                i_targetName);
        return nullptr;
    }
    return pForwarded;
}

// Called by libkrb5 while it builds the request.
krb5_error_code MakeChecksum(krb5_context, krb5_auth_context, void* io_pvRequest, krb5_data** o_ppChecksum) noexcept {
    auto& request = *static_cast<ChecksumRequest*>(io_pvRequest);
    try {
        const bool bDelegate = request.m_pForwarded != nullptr;
        const uint32_t nFlags = (request.m_bMutual ? kGssMutual : 0U) | (bDelegate ? kGssDelegate : 0U) |
                                (request.m_bIntegrity ? kGssIntegrity : 0U);
        request.m_bytes = MakeGssChecksum(
            {nFlags, bDelegate ? std::span(*request.m_pForwarded) : std::span<const uint8_t>(), request.m_channel});
        request.m_data = DataOf(request.m_bytes);
        *o_ppChecksum = &request.m_data;
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

krb5_error_code MakeRequest(krb5_context i_context, ChecksumRequest& io_request, Krb5AuthContext& o_exchange,
                            krb5_data* o_pMessage) {
    if (const krb5_error_code nCode = krb5_auth_con_init(i_context, o_exchange.Receive()); nCode != 0) {
        return nCode;
    }
    krb5_auth_con_setflags(i_context, o_exchange.get(), KRB5_AUTH_CONTEXT_DO_TIME | KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    krb5_auth_con_set_req_cksumtype(i_context, o_exchange.get(), kGssChecksumType);
    krb5_auth_con_set_checksum_func(i_context, o_exchange.get(), MakeChecksum, &io_request);
    const krb5_flags nOptions = AP_OPTS_USE_SUBKEY | (io_request.m_bMutual ? AP_OPTS_MUTUAL_REQUIRED : 0);
    krb5_auth_context exchange = o_exchange.get();
    const krb5_error_code nCode =
        krb5_mk_req_extended(i_context, &exchange, nOptions, nullptr, io_request.m_pServiceTicket, o_pMessage);
    krb5_auth_con_set_checksum_func(i_context, o_exchange.get(), nullptr, nullptr);
    return nCode;
}

// The service says why it refuses. Nobody has signed that, so it explains and changes nothing.
[[noreturn]] void FailAsServiceSays(krb5_context i_context, const krb5_data& i_message) {
    Krb5ErrorRecord error(i_context);
    if (krb5_rd_error(i_context, &i_message, error.Receive()) != 0) {
        Fail(SEC_E_INVALID_TOKEN, "the service answered with an error that cannot be read");
    }
    constexpr krb5_ui_4 kMostKrbErrors = 127;  // the library's codes begin with those of the protocol
    const bool bKnown = error->error > 0 && error->error <= kMostKrbErrors;
    const auto nCode =
        static_cast<krb5_error_code>(bKnown ? ERROR_TABLE_BASE_krb5 + int64_t{error->error} : KRB5KRB_ERR_GENERIC);
    Fail(StatusFromKrb5(nCode), "the service " + PrincipalText(i_context, error->server) +
                                    " refuses the logon: " + ErrorWords(i_context, nCode));
}

}  // namespace

std::shared_ptr<SecurityContext> InitiateLogon(krb5_context i_context, LogonTickets& i_tickets,
                                               const std::string& i_targetName, const LogonTerms& i_terms,
                                               std::vector<uint8_t>& o_token) {
    const auto pTicket = i_tickets.Get(i_context, i_targetName);
    ChecksumRequest request{.m_pServiceTicket = pTicket->m_credentials.get(),
                            .m_pForwarded = nullptr,
                            .m_bMutual = (i_terms.m_nRequirements & ISC_REQ_MUTUAL_AUTH) != 0,
                            .m_bIntegrity = (i_terms.m_nRequirements & ISC_REQ_INTEGRITY) != 0,
                            .m_channel = i_terms.m_channel ? HashChannel(i_context, *i_terms.m_channel) : ChannelHash{},
                            .m_bytes = {}};
    if ((i_terms.m_nRequirements & ISC_REQ_DELEGATE) != 0 && pTicket->MayDelegate()) {
        request.m_pForwarded = TicketToDelegate(i_context, i_tickets, i_targetName, *pTicket);
    }
    Krb5AuthContext exchange(i_context);
    Krb5Data message(i_context);
    if (const krb5_error_code nCode = MakeRequest(i_context, request, exchange, message.Receive()); nCode != 0) {
        FailKrb5(i_context, nCode, "starting a logon to " + i_targetName);
    }
    o_token = MakeGssToken(GssTokenKind::ApRequest, BytesOf(*message));

    auto pLogon = std::make_shared<SecurityContext>();
    pLogon->m_nStart = pTicket->m_nStart;
    pLogon->m_nEnd = pTicket->m_nEnd;
    const Harrowlib201::CS_Locker locker(pLogon->m_section);
    pLogon->m_bEstablished = !request.m_bMutual;
    pLogon->m_nAttributes = (request.m_bMutual ? ISC_RET_MUTUAL_AUTH : 0U) |
                            (request.m_pForwarded != nullptr ? ISC_RET_DELEGATE : 0U) |
                            (request.m_bMutual && request.m_bIntegrity ? ISC_RET_INTEGRITY : 0U);
    if (request.m_bMutual) {
        pLogon->m_exchange = KeptAuthContext(exchange.Detach());
    }
    return pLogon;
}

void CheckAnswer(krb5_context i_context, SecurityContext& io_logon, std::span<const uint8_t> i_token) {
    const Harrowlib201::CS_Locker locker(io_logon.m_section);
    if (io_logon.m_bAccepted || io_logon.m_bEstablished) {
        Fail(SEC_E_INVALID_TOKEN, "the logon is complete and expects no further token");
    }
    const auto token = ReadGssToken(i_token);
    if (!token || token->m_eKind == GssTokenKind::ApRequest) {
        Fail(SEC_E_INVALID_TOKEN, "the service's answer is not a Kerberos token");
    }
    const krb5_data message = DataOf(token->m_message);
    if (token->m_eKind == GssTokenKind::KrbError) {
        FailAsServiceSays(i_context, message);
    }
    Krb5ReplyPart reply(i_context);
    if (const krb5_error_code nCode = krb5_rd_rep(i_context, io_logon.m_exchange.get(), &message, reply.Receive());
        nCode != 0) {
        FailKrb5(i_context, nCode, "checking that the answer comes from the service");
    }
    const Krb5AuthContext finished(i_context, io_logon.m_exchange.Detach());
    if ((io_logon.m_nAttributes & ISC_RET_INTEGRITY) != 0) {
        if (auto mic = MicKey::Of(i_context, finished.get(), false, reply->subkey != nullptr)) {
            io_logon.m_mic.emplace(std::move(*mic));
        } else {
            io_logon.m_nAttributes &= ~ISC_RET_INTEGRITY;
        }
    }
    io_logon.m_bEstablished = true;
}

}  // namespace morwen
