#include "platform/linux/delegation/ProxyTickets.h"

#include <cerrno>
#include <chrono>
#include <functional>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/log/STrace.h"
#include "platform/linux/delegation/ServiceLogon.h"
#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/keys/ServiceName.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kRefusalHolds(60);
constexpr std::chrono::minutes kRenewalRefusalHolds(10);  // of who goes on to itself, at each pass of the clean-up
constexpr std::chrono::seconds kFailureHolds(1);          // a failure that may be over soon
constexpr int64_t kSpareSeconds = 2;  // the ticket must still be good when the other service looks at it

// By the user's ticket, which is compared whole: its hash could be somebody else's. Users log on many times with one
// ticket.
class Table {
public:
    std::shared_ptr<ProxyTickets> Get(std::span<const uint8_t> i_ticket) {
        const std::string_view text(reinterpret_cast<const char*>(i_ticket.data()), i_ticket.size());
        const size_t nHash = std::hash<std::string_view>()(text);
        const CS_Locker locker(m_section);
        if (const Entry* const pEntry = m_entries.Find(nHash); pEntry != nullptr && pEntry->m_ticket == text) {
            if (auto pTickets = pEntry->m_pTickets.lock()) {
                return pTickets;
            }
        }
        auto pTickets = std::make_shared<ProxyTickets>();
        m_entries.Hold(nHash, {std::string(text), pTickets});
        return pTickets;
    }
    void Clear() {
        const CS_Locker locker(m_section);
        m_entries.Clear();
    }

private:
    struct Entry {
        std::string m_ticket;
        std::weak_ptr<ProxyTickets> m_pTickets;  // of contexts that are there
    };

    static constexpr size_t kMostUsers = 512;  // whose threads make second hops at the same time
    Harrowlib201::CS_Wrapper m_section;
    Harrowlib201::HeldMap<size_t, Entry, kMostUsers> m_entries S_GUARDED_BY(m_section);
};

Table& TheTable() {
    static Harrowlib201::NeverDestroyed<Table> s_table;
    return *s_table;
}

const Harrowlib201::AtUnload s_clear([] { TheTable().Clear(); });

// Whether the KDC has looked at the request and decided.
bool IsDecision(krb5_error_code i_nCode) noexcept {
    return i_nCode == KRB5KDC_ERR_BADOPTION || i_nCode == KRB5KDC_ERR_POLICY ||
           i_nCode == KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN;
}

// Whether another request would be answered alike for some time.
bool IsRefusal(krb5_error_code i_nCode) noexcept {
    return IsDecision(i_nCode) || i_nCode == KRB5KRB_AP_ERR_BAD_INTEGRITY;
}

// Whether the other service is this one, under whichever of its account's names: users may have come under another than
// it goes on to. A name without a realm is taken for one of the account's.
bool IsItself(krb5_context i_context, const TicketService& i_service, krb5_principal_data i_other,
              const krb5_data& i_realm) {
    if (i_other.realm.length == 0) {
        i_other.realm = i_realm;
    }
    if (i_service.Is(i_other, true)) {
        return true;
    }
    try {
        const auto other = TicketService::Of(i_other);
        return other && AcceptorKeys::Default(i_context)->AreOfOneAccount(i_service, *other);
    } catch (const SspiFailure&) {
        return false;  // it has no keytab any more, and accepts nobody
    }
}

// What may be wrong where the KDC says no more than that it will not.
const char* Advice(krb5_error_code i_nCode) noexcept {
    switch (i_nCode) {
        case KRB5KDC_ERR_BADOPTION:
            return " (is it in the account's list of services, for constrained delegation?)";
        case KRB5KDC_ERR_POLICY:
            return " (is the user's account disabled?)";
        case KRB5KRB_AP_ERR_BAD_INTEGRITY:
            return " (the user's ticket is not for this account, but for another one in the keytab, or for an old key)";
        default:
            return "";
    }
}

}  // namespace

struct ProxyTickets::Finding {
    std::shared_ptr<const LogonTickets::ServiceTicket> m_pTicket;  // null: it has failed
    SECURITY_STATUS m_nStatus = SEC_E_OK;
    std::string m_words;
    krb5_error_code m_nCode = 0;
    Clock::time_point m_usedUntil = Clock::time_point::max();

    bool IsGood(krb5_context i_context) const {
        return Clock::now() < m_usedUntil &&
               (m_pTicket == nullptr || m_pTicket->m_nEnd > Now(i_context) + kSpareSeconds);
    }
};

std::shared_ptr<ProxyTickets> ProxyTickets::Of(std::span<const uint8_t> i_ticket) {
    return TheTable().Get(i_ticket);
}

std::shared_ptr<const ProxyTickets::Finding> ProxyTickets::Ask(krb5_context i_context, const Evidence& i_evidence,
                                                               const std::string& i_targetName) {
    auto pFinding = std::make_shared<Finding>();
    const auto fail = [&](SECURITY_STATUS i_nStatus, krb5_error_code i_nCode, std::string i_words,
                          std::chrono::seconds i_holds) {
        pFinding->m_nStatus = i_nStatus;
        pFinding->m_nCode = i_nCode;
        pFinding->m_words = std::move(i_words);
        pFinding->m_usedUntil = Clock::now() + i_holds;
        return pFinding;
    };
    const auto service = TicketService::Read(i_evidence.m_ticket);
    if (!service) {
        return fail(SEC_E_NO_CREDENTIALS, 0, "the user's ticket names no service", kRefusalHolds);
    }
    const std::string user = PrincipalText(i_context, i_evidence.m_pUser);
    try {
        const Krb5Principal server = ServicePrincipal(i_context, i_targetName);
        const auto pOwn = ServiceLogon::Get(i_context, *service);
        krb5_creds wanted{};
        wanted.client = pOwn->m_account.get();
        wanted.server = server.get();
        wanted.second_ticket = DataOf(i_evidence.m_ticket);
        krb5_creds* pFound = nullptr;
        const krb5_error_code nCode =
            krb5_get_credentials(i_context, KRB5_GC_CONSTRAINED_DELEGATION | KRB5_GC_CANONICALIZE | KRB5_GC_NO_STORE,
                                 pOwn->m_cache.get(), &wanted, &pFound);
        KeptCredentials found(pFound);
        const std::string what =
            PrincipalText(i_context, pOwn->m_account.get()) + " log on to " + i_targetName + " in the name of " + user;
        if (nCode == ENOMEM) {
            throw std::bad_alloc();
        }
        const SECURITY_STATUS nStatus = StatusFromKrb5(nCode);
        const bool bToItself = IsItself(i_context, *service, *server.get(), pOwn->m_account.get()->realm);
        if (nCode != 0 && !IsDecision(nCode) && nStatus != SEC_E_TARGET_UNKNOWN &&
            nStatus != SEC_E_NO_AUTHENTICATING_AUTHORITY) {
            ServiceLogon::Forget(i_context, *service);  // a new one may do better
        }
        if (IsRefusal(nCode)) {
            return fail(SEC_E_NO_CREDENTIALS, nCode,
                        "the user has delegated no tickets to this service, and the KDC does not let " + what + ": " +
                            ErrorWords(i_context, nCode) + Advice(nCode),
                        bToItself ? kRenewalRefusalHolds : kRefusalHolds);
        }
        if (nCode != 0) {
            return fail(nStatus, nCode, "asking the KDC to let " + what + ": " + ErrorWords(i_context, nCode),
                        kFailureHolds);
        }
        // Nobody but the user: what the KDC has given must never make this service, or another, of whom it acts as.
        if (krb5_principal_compare(i_context, pFound->client, i_evidence.m_pUser) == 0) {
            return fail(SEC_E_LOGON_DENIED, 0,
                        "the KDC was asked to let " + what + ", and has given a ticket of " +
                            PrincipalText(i_context, pFound->client),
                        kRefusalHolds);
        }
        const krb5_ticket_times& times = pFound->times;
        const int64_t nStart = SecondsOf(times.starttime != 0 ? times.starttime : times.authtime);
        const int64_t nEnd = SecondsOf(times.endtime);
        pFinding->m_pTicket = std::make_shared<const LogonTickets::ServiceTicket>(
            LogonTickets::ServiceTicket{std::move(found), nStart, nEnd});
        if (bToItself) {
            // It is to renew the user's context, with what the directory says of the user then.
            pFinding->m_usedUntil = Clock::now() + kFailureHolds;
        }
        S_TRACE("ssoplugin: ProxyTickets::Ask() -- The KDC lets %1, until %2.", what, TimeText(nEnd));
        return pFinding;
    } catch (const SspiFailure& failure) {
        return fail(failure.Status(), failure.Krb5Code(), std::string(FailureText(failure.Status())), kFailureHolds);
    }
}

std::shared_ptr<const LogonTickets::ServiceTicket> ProxyTickets::Get(krb5_context i_context, const Evidence& i_evidence,
                                                                     const std::string& i_targetName) {
    if (i_evidence.m_nEnd <= Now(i_context)) {
        Fail(SEC_E_NO_CREDENTIALS, "the user has delegated no tickets to this service, and the ticket of " +
                                       PrincipalText(i_context, i_evidence.m_pUser) + " for it expired at " +
                                       TimeText(i_evidence.m_nEnd));
    }
    const auto pFinding = m_findings.Get(
        i_targetName, [&](const Finding& i_finding) { return i_finding.IsGood(i_context); },
        [&](const std::shared_ptr<const Finding>&) { return Ask(i_context, i_evidence, i_targetName); });
    if (pFinding->m_pTicket == nullptr) {
        throw SspiFailure(FailWith(pFinding->m_nStatus, pFinding->m_words), pFinding->m_nCode);
    }
    return pFinding->m_pTicket;
}

}  // namespace morwen
