#include "platform/linux/keys/InitiatorTickets.h"

#include <unistd.h>

#include <compare>
#include <map>
#include <string_view>
#include <utility>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/log/STrace.h"
#include "platform/linux/contexts/FileSizeSignal.h"
#include "platform/linux/keys/DefaultCache.h"
#include "platform/linux/keys/ServiceName.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

// A ticket that ends sooner is replaced: it must still be good when the server looks at it.
constexpr int64_t kSpareSeconds = 2;

// More than one process uses.
constexpr size_t kMostIdentities = 64;

// Whether the name may mean another cache on each thread: a keyring of the thread, or of its session, which is also
// where a name without a kind of keyring lies.
bool IsOfThread(std::string_view i_cacheName) {
    constexpr std::string_view kKeyring = "KEYRING:";
    if (!i_cacheName.starts_with(kKeyring)) {
        return false;
    }
    i_cacheName.remove_prefix(kKeyring.size());
    return !i_cacheName.starts_with("persistent:") && !i_cacheName.starts_with("user:") &&
           !i_cacheName.starts_with("process:");
}

// The default identities by cache and user: the same cache name may mean another cache for another user.
class Identities {
public:
    std::shared_ptr<InitiatorTickets> Get(std::string_view i_cacheName, bool i_bNamed) {
        const uid_t nUser = geteuid();
        if (IsOfThread(i_cacheName)) {
            return std::make_shared<InitiatorTickets>(std::string(i_cacheName), i_bNamed);
        }
        const CS_Locker locker(m_section);
        if (const auto* const pHeld = m_identities.Find(Sought{i_cacheName, nUser, i_bNamed})) {
            return *pHeld;
        }
        return m_identities.Hold({std::string(i_cacheName), nUser, i_bNamed},
                                 std::make_shared<InitiatorTickets>(std::string(i_cacheName), i_bNamed));
    }

    void Clear() {
        const CS_Locker locker(m_section);
        m_identities.Clear();
    }

private:
    struct Sought {
        std::string_view m_cacheName;
        uid_t m_nUser;
        bool m_bNamed;

        auto operator<=>(const Sought& i_other) const noexcept = default;
    };
    struct Key {
        std::string m_cacheName;
        uid_t m_nUser;
        bool m_bNamed;

        // NOLINTNEXTLINE(google-explicit-constructor): compared as one
        operator Sought() const noexcept { return {m_cacheName, m_nUser, m_bNamed}; }
    };
    struct Less {
        using is_transparent = void;
        bool operator()(const Sought& i_left, const Sought& i_right) const noexcept { return i_left < i_right; }
    };
    using Map = std::map<Key, std::shared_ptr<InitiatorTickets>, Less>;

    Harrowlib201::CS_Wrapper m_section;
    Harrowlib201::HeldMap<Key, std::shared_ptr<InitiatorTickets>, kMostIdentities, Map> m_identities
        S_GUARDED_BY(m_section);
};

Identities& DefaultIdentities() {
    static Harrowlib201::NeverDestroyed<Identities> s_identities;
    return *s_identities;
}

// Tickets do not stay in the process when the library leaves it.
const Harrowlib201::AtUnload s_clear([] { InitiatorTickets::ReleaseHeld(); });

std::string CacheText(krb5_context i_context, krb5_ccache i_cache) {
    Krb5String name(i_context);
    return krb5_cc_get_full_name(i_context, i_cache, name.Receive()) == 0 ? name.get() : "a cache without a name";
}

bool EndsSoon(krb5_context i_context, int64_t i_nEnd) {
    return i_nEnd <= Now(i_context) + kSpareSeconds;
}

// When the user's own ticket-granting ticket ends; 0 when there is none.
int64_t EndOfOwnTicket(krb5_context i_context, krb5_ccache i_cache, krb5_principal i_client) {
    Krb5Principal service(i_context);
    const krb5_data& realm = i_client->realm;
    if (krb5_build_principal(i_context, service.Receive(), realm.length, realm.data, KRB5_TGS_NAME,
                             std::string(realm.data, realm.length).c_str(), nullptr) != 0) {
        return 0;
    }
    krb5_creds wanted{};
    krb5_creds found{};
    wanted.client = i_client;
    wanted.server = service.get();
    if (krb5_cc_retrieve_cred(i_context, i_cache, 0, &wanted, &found) != 0) {
        return 0;
    }
    const int64_t nEnd = SecondsOf(found.times.endtime);
    krb5_free_cred_contents(i_context, &found);
    return nEnd;
}

[[noreturn]] void FailExpired(const std::string& i_client, const std::string& i_cache, int64_t i_nEnd) {
    Fail(SEC_E_NO_CREDENTIALS,
         "the ticket of " + i_client + " in " + i_cache + " expired at " + TimeText(i_nEnd) + "; log on again (kinit)");
}

[[noreturn]] void FailNoServiceTicket(krb5_context i_context, krb5_error_code i_nCode, const Krb5CacheOwner& i_cache,
                                      krb5_principal i_client, const std::string& i_targetName) {
    const SECURITY_STATUS nStatus = StatusFromKrb5(i_nCode);
    const std::string words = ErrorWords(i_context, i_nCode);
    const std::string client = PrincipalText(i_context, i_client);
    const std::string cache = CacheText(i_context, i_cache.get());
    const int64_t nEnd = EndOfOwnTicket(i_context, i_cache.get(), i_client);
    const bool bNothingUsable = nStatus == SEC_E_NO_CREDENTIALS || nStatus == SEC_E_CONTEXT_EXPIRED;
    if (bNothingUsable && nEnd != 0 && nEnd <= Now(i_context)) {
        FailExpired(client, cache, nEnd);
    }
    Fail(nStatus == SEC_E_CONTEXT_EXPIRED ? SEC_E_NO_CREDENTIALS : nStatus,
         "getting a ticket for " + i_targetName + " for " + client + " with " + cache + ": " + words);
}

}  // namespace

std::shared_ptr<InitiatorTickets> InitiatorTickets::Default(krb5_context i_context) {
    // Before anything else, as libkrb5 does, which takes longer over it.
    if (const char* const pszNamed = NamedCache()) {
        return DefaultIdentities().Get(pszNamed, true);
    }
    // A context remembers the name that it has seen first; the environment may have changed since.
    krb5_error_code nCode = krb5_cc_set_default_name(i_context, nullptr);
    const char* const pszName = nCode == 0 ? krb5_cc_default_name(i_context) : nullptr;
    if (pszName == nullptr) {
        FailKrb5(i_context, nCode != 0 ? nCode : ENOMEM, "looking for the default credential cache");
    }
    return DefaultIdentities().Get(pszName, false);
}

void InitiatorTickets::ReleaseHeld() noexcept {
    DefaultIdentities().Clear();
}

InitiatorTickets::InitiatorTickets(std::string i_cacheName, bool i_bNamed)
    : m_cacheName(std::move(i_cacheName)), m_cachePath(PathOfKrb5Name(m_cacheName)), m_bCacheNamed(i_bNamed) {}

InitiatorTickets::InitiatorTickets(std::unique_ptr<PasswordLogon> i_pLogon) : m_pLogon(std::move(i_pLogon)) {}

std::shared_ptr<const InitiatorTickets::ServiceTicket> InitiatorTickets::Get(krb5_context i_context,
                                                                             const std::string& i_targetName) {
    uint64_t nGeneration = 0;
    if (auto pTicket = Held(i_context, i_targetName, nGeneration)) {
        return pTicket;
    }
    auto pTicket = Fetch(i_context, i_targetName);
    Hold(i_targetName, pTicket, nGeneration);
    return pTicket;
}

std::shared_ptr<const ForwardedTicket> InitiatorTickets::Forwarded(krb5_context i_context,
                                                                   const std::string& i_targetName,
                                                                   const ServiceTicket& i_ticket) {
    return m_forwarded.Get(i_context, *this, i_targetName, *i_ticket.m_credentials.get());
}

uint64_t InitiatorTickets::Generation() {
    ForgetWhenChanged();
    const CS_Locker locker(m_section);
    return m_nGeneration;
}

void InitiatorTickets::RequireOwnCache(bool i_bRead) const {
    if (const std::string fault = m_bCacheNamed ? std::string() : FaultOfDefaultCache(m_cacheName, i_bRead);
        !fault.empty()) {
        Fail(SEC_E_NO_CREDENTIALS, "the default credential cache " + m_cacheName + " is not used, because it " + fault +
                                       "; KRB5CCNAME can name another, or this one");
    }
}

Krb5CacheOwner InitiatorTickets::OpenCache(krb5_context i_context) {
    RequireOwnCache();
    const std::string name = m_pLogon ? m_pLogon->Cache(i_context) : m_cacheName;
    Krb5CacheOwner cache(i_context);
    if (const krb5_error_code nCode = krb5_cc_resolve(i_context, name.c_str(), cache.Receive()); nCode != 0) {
        Fail(nCode == ENOMEM ? SEC_E_INSUFFICIENT_MEMORY : SEC_E_NO_CREDENTIALS,
             "the credential cache " + name + " cannot be used: " + ErrorWords(i_context, nCode));
    }
    return cache;
}

bool InitiatorTickets::NeedsLook() {
    const CS_Locker locker(m_section);
    return !m_pLogon && !m_look.IsOfThisTick();
}

void InitiatorTickets::ForgetWhenChanged() {
    if (!NeedsLook()) {
        return;
    }
    const SourceLook look(m_cachePath);
    const CS_Locker locker(m_section);
    if (!m_look.GoOnWith(look)) {
        m_tickets.Clear();
        ++m_nGeneration;
    }
}

std::shared_ptr<const InitiatorTickets::ServiceTicket> InitiatorTickets::Held(krb5_context i_context,
                                                                              const std::string& i_targetName,
                                                                              uint64_t& o_nGeneration) {
    ForgetWhenChanged();
    const CS_Locker locker(m_section);
    o_nGeneration = m_nGeneration;
    const auto* const pHeld = m_tickets.Find(i_targetName);
    if (pHeld == nullptr) {
        return nullptr;
    }
    if (EndsSoon(i_context, (*pHeld)->m_nEnd)) {
        m_tickets.Forget(i_targetName);
        return nullptr;
    }
    return *pHeld;
}

void InitiatorTickets::Hold(const std::string& i_targetName, std::shared_ptr<const ServiceTicket> i_pTicket,
                            uint64_t i_nGeneration) {
    const CS_Locker locker(m_section);
    if (i_nGeneration == m_nGeneration) {  // else perhaps of somebody whose tickets have been replaced meanwhile
        m_tickets.Hold(i_targetName, std::move(i_pTicket));
    }
}

std::shared_ptr<const InitiatorTickets::ServiceTicket> InitiatorTickets::Fetch(krb5_context i_context,
                                                                               const std::string& i_targetName) {
    const Krb5CacheOwner cache = OpenCache(i_context);
    Krb5Principal client(i_context);
    krb5_error_code nCode = krb5_cc_get_principal(i_context, cache.get(), client.Receive());
    if (nCode != 0) {
        Fail(nCode == ENOMEM ? SEC_E_INSUFFICIENT_MEMORY : SEC_E_NO_CREDENTIALS,
             "there are no tickets to log on with in " + CacheText(i_context, cache.get()) + ": " +
                 ErrorWords(i_context, nCode));
    }
    const Krb5Principal server = ServicePrincipal(i_context, i_targetName);
    krb5_creds wanted{};
    wanted.client = client.get();
    wanted.server = server.get();
    krb5_creds* pFound = nullptr;
    const auto get = [&] {
        const FileSizeSignal heldBack;  // of the cache, where a new ticket goes
        return krb5_get_credentials(i_context, 0, cache.get(), &wanted, &pFound);
    };
    nCode = get();
    KeptCredentials found(pFound);
    if (nCode == 0 && EndsSoon(i_context, SecondsOf(pFound->times.endtime))) {
        // libkrb5 gives a ticket of the cache up to its last second; the user's own may be good for a longer one.
        const int64_t nOwnEnd = EndOfOwnTicket(i_context, cache.get(), client.get());
        if (nOwnEnd > SecondsOf(pFound->times.endtime)) {
            wanted.times.endtime = static_cast<krb5_timestamp>(nOwnEnd);
            nCode = get();
            found = KeptCredentials(pFound);
        }
    }
    if (nCode != 0) {
        FailNoServiceTicket(i_context, nCode, cache, client.get(), i_targetName);
    }
    const krb5_ticket_times& times = pFound->times;
    const int64_t nStart = SecondsOf(times.starttime != 0 ? times.starttime : times.authtime);
    auto pTicket = std::make_shared<ServiceTicket>(ServiceTicket{std::move(found), nStart, SecondsOf(times.endtime)});
    if (pTicket->m_nEnd <= Now(i_context)) {
        FailExpired(PrincipalText(i_context, client.get()), CacheText(i_context, cache.get()), pTicket->m_nEnd);
    }
    S_TRACE("ssoplugin: InitiatorTickets::Fetch() -- Got a ticket for %1 that ends at %2.", i_targetName,
            TimeText(pTicket->m_nEnd));
    RequireOwnCache(true);  // it may have come just after the first look
    return pTicket;
}

}  // namespace morwen
