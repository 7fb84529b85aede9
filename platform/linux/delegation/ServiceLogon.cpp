#include "platform/linux/delegation/ServiceLogon.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/log/STrace.h"
#include "platform/linux/forwarding/AskedOnce.h"
#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kFailureHolds(30);  // unless the keytab changes
constexpr size_t kMostAsked = 8;                   // names, each of which costs a request
constexpr size_t kMostOthers = 64;    // keys of other names that are looked at; a keytab may hold thousands
constexpr size_t kMostServices = 16;  // more than a process accepts for
constexpr int64_t kSpareSeconds = 2;

// What was found out about one service.
struct Finding {
    std::shared_ptr<const AcceptorKeys> m_pKeys;
    std::shared_ptr<const ServiceLogon> m_pLogon;  // null: nobody gets a ticket
    std::string m_words;
    SECURITY_STATUS m_nStatus = SEC_E_NO_CREDENTIALS;
    krb5_error_code m_nCode = 0;
    Clock::time_point m_failedUntil;
    int64_t m_nRenewAt = 0;
    mutable std::atomic<bool> m_bRenewing{false};  // somebody has set out to get the next one

    bool IsUsable(krb5_context i_context) const {
        return m_pLogon != nullptr && Now(i_context) + kSpareSeconds < m_pLogon->m_nEnd;
    }
    bool IsGood(krb5_context i_context, const AcceptorKeys& i_keys) const {
        if (m_pKeys.get() != &i_keys) {
            return false;
        }
        if (m_pLogon == nullptr) {
            return Clock::now() < m_failedUntil;
        }
        return IsUsable(i_context) && (Now(i_context) < m_nRenewAt || m_bRenewing.exchange(true));
    }
};

using Findings = AskedOnce<Finding, kMostServices>;

Findings& TheFindings() {
    static Harrowlib201::NeverDestroyed<Findings> s_findings;
    return *s_findings;
}

// Tickets do not stay in the process when the library leaves it.
const Harrowlib201::AtUnload s_clear([] { ServiceLogon::ReleaseHeld(); });

// The client keytab, if there is one with something in it, else the service's own.
std::shared_ptr<const AcceptorKeys> KeysToLogOnWith(krb5_context i_context) {
    Krb5Keytab keytab(i_context);
    std::array<char, 4096> aName{};
    if (krb5_kt_client_default(i_context, keytab.Receive()) == 0 &&
        krb5_kt_have_content(i_context, keytab.get()) == 0 &&
        krb5_kt_get_name(i_context, keytab.get(), aName.data(), unsigned{aName.size()}) == 0) {
        return AcceptorKeys::Named(i_context, aName.data());
    }
    return AcceptorKeys::Default(i_context);
}

std::string NameOf(krb5_context i_context, const AcceptorKeys& i_keys, const TicketService& i_service) {
    const auto* const pService = i_keys.Find(i_service);
    return i_keys.Name() + " " + (pService != nullptr ? PrincipalText(i_context, pService->m_pName) : "");
}

// Those in the keytab, the likeliest first: the one that had a ticket before; accounts, whose names have one part, and
// of these that of the service, which has one key under all its names; the service itself, to which other KDCs than a
// directory's give tickets too; the others.
std::vector<krb5_const_principal> Candidates(krb5_context i_context, const AcceptorKeys& i_keys,
                                             const TicketService& i_service, krb5_const_principal i_pEarlier) {
    struct Candidate {
        int m_nRank;
        krb5_const_principal m_pName;
    };
    const auto& entries = i_keys.Entries();
    std::vector<Candidate> candidates;
    std::vector<const krb5_keytab_entry*> ofService;
    for (const krb5_keytab_entry& entry : entries) {
        if (i_service.Is(*entry.principal, true)) {
            ofService.push_back(&entry);
        }
    }
    size_t nOthers = 0;
    for (const krb5_keytab_entry& entry : entries) {
        const bool bService = i_service.Is(*entry.principal, true);
        const bool bSameKey = std::any_of(ofService.begin(), ofService.end(), [&](const auto* i_pOther) {
            return AcceptorKeys::HaveSameKey(entry, *i_pOther);
        });
        int nRank = bService ? 3 : 4;
        if (i_pEarlier != nullptr && krb5_principal_compare(i_context, entry.principal, i_pEarlier) != 0) {
            nRank = 0;
        } else if (entry.principal->length == 1) {
            nRank = bSameKey ? 1 : 2;
        } else if (!bService && nOthers++ >= kMostOthers) {
            continue;
        }
        const auto it = std::find_if(candidates.begin(), candidates.end(), [&](const Candidate& i_other) {
            return krb5_principal_compare(i_context, entry.principal, i_other.m_pName) != 0;
        });
        if (it == candidates.end()) {
            candidates.push_back({nRank, entry.principal});
        } else {
            it->m_nRank = std::min(it->m_nRank, nRank);
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(), [](const Candidate& i_left, const Candidate& i_right) {
        return i_left.m_nRank < i_right.m_nRank;
    });
    std::vector<krb5_const_principal> names;
    for (size_t i = 0; i < std::min(candidates.size(), kMostAsked); ++i) {
        names.push_back(candidates[i].m_pName);
    }
    return names;
}

// A new ticket, in a cache of its own.
krb5_error_code LogOn(krb5_context i_context, const AcceptorKeys& i_keys, krb5_const_principal i_pName,
                      ServiceLogon& o_logon) {
    krb5_principal name = nullptr;
    krb5_error_code nCode = krb5_copy_principal(i_context, i_pName, &name);
    o_logon.m_account = KeptPrincipal(name);
    o_logon.m_keytab = i_keys.Name();
    Krb5InitOptions options(i_context);
    if (nCode == 0) {
        nCode = krb5_get_init_creds_opt_alloc(i_context, options.Receive());
    }
    krb5_ccache cache = nullptr;
    if (nCode == 0) {
        nCode = krb5_cc_new_unique(i_context, "MEMORY", nullptr, &cache);
        o_logon.m_cache = KeptMemoryCache(cache);
    }
    krb5_creds ticket{};
    if (nCode == 0) {
        krb5_get_init_creds_opt_set_forwardable(options.get(), 1);
        nCode = krb5_get_init_creds_opt_set_out_ccache(i_context, options.get(), cache);
    }
    if (nCode == 0) {
        nCode = krb5_get_init_creds_keytab(i_context, &ticket, name, i_keys.Keytab(), 0, nullptr, options.get());
    }
    o_logon.m_nStart = SecondsOf(ticket.times.starttime != 0 ? ticket.times.starttime : ticket.times.authtime);
    o_logon.m_nEnd = SecondsOf(ticket.times.endtime);
    krb5_free_cred_contents(i_context, &ticket);
    return nCode;
}

std::shared_ptr<const Finding> Ask(krb5_context i_context, std::shared_ptr<const AcceptorKeys> i_pKeys,
                                   const TicketService& i_service, const Finding* i_pEarlier) {
    auto pFinding = std::make_shared<Finding>();
    std::string first;
    for (const krb5_const_principal pName :
         Candidates(i_context, *i_pKeys, i_service,
                    i_pEarlier != nullptr && i_pEarlier->m_pLogon ? i_pEarlier->m_pLogon->m_account.get() : nullptr)) {
        auto pLogon = std::make_shared<ServiceLogon>();
        const krb5_error_code nCode = LogOn(i_context, *i_pKeys, pName, *pLogon);
        if (nCode == ENOMEM) {
            throw std::bad_alloc();
        }
        if (nCode == 0) {
            S_TRACE("ssoplugin: ServiceLogon::Get() -- The service has a ticket of its own as %1 until %2.",
                    PrincipalText(i_context, pName), TimeText(pLogon->m_nEnd));
            pFinding->m_nRenewAt = pLogon->m_nStart + (pLogon->m_nEnd - pLogon->m_nStart) / 2;
            pFinding->m_pLogon = std::move(pLogon);
            break;
        }
        if (first.empty()) {  // the likeliest
            first = PrincipalText(i_context, pName);
            pFinding->m_nCode = nCode;
            pFinding->m_words = ErrorWords(i_context, nCode);
        }
        if (StatusFromKrb5(nCode) == SEC_E_NO_AUTHENTICATING_AUTHORITY) {
            pFinding->m_nStatus = SEC_E_NO_AUTHENTICATING_AUTHORITY;
            pFinding->m_nCode = nCode;
            pFinding->m_words = ErrorWords(i_context, nCode);
            break;  // nobody else gets one either
        }
    }
    if (pFinding->m_pLogon == nullptr && i_pEarlier != nullptr && i_pEarlier->m_pKeys == i_pKeys &&
        i_pEarlier->IsUsable(i_context)) {
        pFinding->m_pLogon = i_pEarlier->m_pLogon;  // not renewed this time
        pFinding->m_nRenewAt = Now(i_context) + kFailureHolds.count();
    }
    if (pFinding->m_pLogon == nullptr) {
        const bool bUnreachable = pFinding->m_nStatus == SEC_E_NO_AUTHENTICATING_AUTHORITY;
        pFinding->m_failedUntil = Clock::now() + (bUnreachable ? std::chrono::seconds(1) : kFailureHolds);
        pFinding->m_words =
            "the user has delegated no tickets to this service, and " +
            (bUnreachable ? "its own account cannot be asked about with the keytab " + i_pKeys->Name()
                          : "the keytab " + i_pKeys->Name() +
                                " has no account with a ticket (add the key of the account itself, under "
                                "its own name)") +
            "; for " + first + ": " + pFinding->m_words;
    }
    pFinding->m_pKeys = std::move(i_pKeys);
    return pFinding;
}

}  // namespace

std::shared_ptr<const ServiceLogon> ServiceLogon::Get(krb5_context i_context, const TicketService& i_service) {
    const auto pKeys = KeysToLogOnWith(i_context);
    const auto pFinding = TheFindings().Get(
        NameOf(i_context, *pKeys, i_service),
        [&](const Finding& i_finding) { return i_finding.IsGood(i_context, *pKeys); },
        [&](const std::shared_ptr<const Finding>& i_pEarlier) {
            return Ask(i_context, pKeys, i_service, i_pEarlier.get());
        });
    if (pFinding->m_pLogon == nullptr) {
        throw SspiFailure(FailWith(pFinding->m_nStatus, pFinding->m_words), pFinding->m_nCode);
    }
    return pFinding->m_pLogon;
}

void ServiceLogon::ReleaseHeld() noexcept {
    TheFindings().Clear();
}

void ServiceLogon::Forget(krb5_context i_context, const TicketService& i_service) {
    TheFindings().Forget(NameOf(i_context, *KeysToLogOnWith(i_context), i_service));
}

}  // namespace morwen
