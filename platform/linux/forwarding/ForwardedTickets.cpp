#include "platform/linux/forwarding/ForwardedTickets.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <vector>

#include "harrow/log/STrace.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

using Clock = std::chrono::steady_clock;
using MessageTickets = Krb5Owner<krb5_creds**, krb5_free_tgt_creds>;

constexpr std::chrono::minutes kUsedAgain(5);
constexpr std::chrono::seconds kNotAskedAgain(1);  // after a failure that may be over soon
constexpr int64_t kSpareSeconds = 60;              // which the server is left with at least

// The contents of a ticket that a call has filled.
struct TicketContents {
    krb5_context m_context;
    krb5_creds m_ticket{};

    explicit TicketContents(krb5_context i_context) noexcept : m_context(i_context) {}
    ~TicketContents() { krb5_free_cred_contents(m_context, &m_ticket); }
    TicketContents(const TicketContents&) = delete;
    TicketContents& operator=(const TicketContents&) = delete;
};

// The identity's own ticket-granting ticket; false when there is none.
bool FindOwnTicket(krb5_context i_context, krb5_ccache i_cache, krb5_principal i_client, krb5_creds& o_found) {
    Krb5Principal service(i_context);
    const krb5_data& realm = i_client->realm;
    if (krb5_build_principal(i_context, service.Receive(), realm.length, realm.data, KRB5_TGS_NAME,
                             std::string(realm.data, realm.length).c_str(), nullptr) != 0) {
        throw std::bad_alloc();
    }
    krb5_creds wanted{};
    wanted.client = i_client;
    wanted.server = service.get();
    return krb5_cc_retrieve_cred(i_context, i_cache, 0, &wanted, &o_found) == 0;
}

// The message, and when its ticket ends.
krb5_error_code AskKdc(krb5_context i_context, krb5_ccache i_cache, const krb5_creds& i_serviceTicket,
                       ForwardedTicket& o_message, int64_t& o_nEnd) {
    Krb5AuthContext exchange(i_context);
    krb5_error_code nCode = krb5_auth_con_init(i_context, exchange.Receive());
    if (nCode != 0) {
        return nCode;
    }
    // Time stamps and numbers of its own would say nothing within a message that is protected already.
    krb5_auth_con_setflags(i_context, exchange.get(), 0);
    krb5_keyblock key = i_serviceTicket.keyblock;  // copied by the library
    nCode = krb5_auth_con_setuseruserkey(i_context, exchange.get(), &key);
    Krb5Data message(i_context);
    if (nCode == 0) {
        krb5_principal_data server = *i_serviceTicket.server;
        server.type = KRB5_NT_SRV_HST;  // or the library does not look for the host in it
        nCode = krb5_fwd_tgt_creds(i_context, exchange.get(), nullptr, i_serviceTicket.client, &server, i_cache, 1,
                                   message.Receive());
    }
    MessageTickets tickets(i_context);
    if (nCode == 0) {
        krb5_data bytes = *message;
        nCode = krb5_rd_cred(i_context, exchange.get(), &bytes, tickets.Receive(), nullptr);
    }
    if (nCode == 0) {
        const auto bytes = BytesOf(*message);
        o_message.assign(bytes.begin(), bytes.end());
        o_nEnd = tickets.get()[0] != nullptr ? SecondsOf(tickets.get()[0]->times.endtime) : 0;
    }
    return nCode;
}

bool AreSame(const std::vector<uint8_t>& i_left, const krb5_data& i_right) {
    const auto right = BytesOf(i_right);
    return std::equal(i_left.begin(), i_left.end(), right.begin(), right.end());
}

std::vector<uint8_t> CopyOf(const krb5_data& i_data) {
    const auto bytes = BytesOf(i_data);
    return {bytes.begin(), bytes.end()};
}

}  // namespace

struct ForwardedTickets::Finding {
    std::shared_ptr<const ForwardedTicket> m_pTicket;  // null: there is none to hand on
    std::vector<uint8_t>
        m_madeFrom;  // the ticket-granting ticket and the service's, as the KDC has encrypted them: they
    std::vector<uint8_t> m_madeFor;  // say whose this is, and which key it is encrypted with
    uint64_t m_nGeneration = 0;      // of the cache, in which they were in it
    Clock::time_point m_goodUntil;
    int64_t m_nEnd = 0;  // when it is handed on no more, seconds since 1970

    bool IsRecent(krb5_context i_context, const krb5_creds& i_serviceTicket) const {
        return Clock::now() < m_goodUntil && (m_pTicket == nullptr || Now(i_context) < m_nEnd) &&
               AreSame(m_madeFor, i_serviceTicket.ticket);
    }
};

ForwardedTickets::ForwardedTickets() = default;
ForwardedTickets::~ForwardedTickets() = default;

std::shared_ptr<const ForwardedTickets::Finding> ForwardedTickets::Find(krb5_context i_context, Source& io_source,
                                                                        const std::string& i_targetName,
                                                                        const krb5_creds& i_serviceTicket,
                                                                        const Finding* i_pEarlier) {
    auto pFinding = std::make_shared<Finding>();
    pFinding->m_goodUntil = Clock::now() + kNotAskedAgain;
    pFinding->m_nGeneration = io_source.Generation();  // before the look: a change between the two is seen at the next
    pFinding->m_madeFor = CopyOf(i_serviceTicket.ticket);
    std::string words = "the ticket is not forwardable";
    try {
        const Krb5CacheOwner cache = io_source.OpenCache(i_context);
        TicketContents own(i_context);
        if (!FindOwnTicket(i_context, cache.get(), i_serviceTicket.client, own.m_ticket)) {
            return pFinding;
        }
        pFinding->m_madeFrom = CopyOf(own.m_ticket.ticket);
        if (i_pEarlier != nullptr && i_pEarlier->IsRecent(i_context, i_serviceTicket) &&
            i_pEarlier->m_madeFrom == pFinding->m_madeFrom) {
            pFinding->m_pTicket = i_pEarlier->m_pTicket;
            pFinding->m_goodUntil = i_pEarlier->m_goodUntil;
            pFinding->m_nEnd = i_pEarlier->m_nEnd;
            return pFinding;
        }
        const bool bForwardable = (own.m_ticket.ticket_flags & TKT_FLG_FORWARDABLE) != 0;
        auto pMessage = std::make_shared<ForwardedTicket>();
        int64_t nEnd = 0;
        const krb5_error_code nCode =
            bForwardable ? AskKdc(i_context, cache.get(), i_serviceTicket, *pMessage, nEnd) : 0;
        if (nCode == ENOMEM) {
            throw std::bad_alloc();
        }
        if (nCode == 0 || nCode == KRB5KDC_ERR_BADOPTION || nCode == KRB5KDC_ERR_POLICY) {
            pFinding->m_goodUntil = Clock::now() + kUsedAgain;
        }
        if (!pMessage->empty()) {
            pFinding->m_nEnd = nEnd - kSpareSeconds;
            pFinding->m_pTicket = std::move(pMessage);
            return pFinding;
        }
        words = nCode != 0 ? ErrorWords(i_context, nCode) : words;
    } catch (const SspiFailure& failure) {
        words = std::string(FailureText(failure.Status()));
    }
    S_TRACE("ssoplugin: ForwardedTickets::Find() -- Going on without delegation to %1: %2", i_targetName, words);
    return pFinding;
}

std::shared_ptr<const ForwardedTicket> ForwardedTickets::Get(krb5_context i_context, Source& io_source,
                                                             const std::string& i_targetName,
                                                             const krb5_creds& i_serviceTicket) {
    const uint64_t nGeneration = io_source.Generation();
    const auto isGood = [&](const Finding& i_finding) {
        return i_finding.m_nGeneration == nGeneration && i_finding.IsRecent(i_context, i_serviceTicket);
    };
    return m_findings
        .Get(i_targetName, isGood,
             [&](const std::shared_ptr<const Finding>& i_pEarlier) {
                 return Find(i_context, io_source, i_targetName, i_serviceTicket, i_pEarlier.get());
             })
        ->m_pTicket;
}

}  // namespace morwen
