#include "platform/linux/identity/ThreadIdentity.h"

#include <cerrno>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/log/STrace.h"
#include "harrow/threads/ThreadRecords.h"
#include "platform/linux/identity/ServiceRecord.h"
#include "platform/linux/identity/ThreadCredentials.h"

namespace morwen {

using Harrowlib201::CS_Locker;
using Harrowlib201::CS_Wrapper;

namespace {

struct Impersonation {
    ThreadCredentials m_service;
    std::shared_ptr<const TokenIdentity> m_pIdentity;

    // As the identity. Who acts as the service itself keeps what that has; a user with the service's account does not.
    int Exchange(bool& io_bStuck) noexcept {
        const bool bItself = m_pIdentity->m_bService && *m_pIdentity->m_account == m_service.m_account;
        return bItself ? 0 : m_service.Exchange(*m_pIdentity->m_account, io_bStuck);
    }
};

using Impersonations = Harrowlib201::ThreadRecords<std::unique_ptr<Impersonation>>;

struct Registry {
    CS_Wrapper m_section;
    Impersonations m_threads S_GUARDED_BY(m_section);
};

Registry& TheRegistry() noexcept {
    static Harrowlib201::NeverDestroyed<Registry> s_registry;
    return *s_registry;
}

// Lets go of what threads have left behind that ended while they impersonated: the user's tickets may be among it.
void ForgetEnded(size_t i_nMost) noexcept {
    Impersonations::Records ended;  // after the lock
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    ended = registry.m_threads.TakeGone(i_nMost);
}

// It must not count as lost when the library is unloaded; a thread that lives may still use its own.
const Harrowlib201::AtUnload s_forget([] { ForgetEnded(std::numeric_limits<size_t>::max()); });

// The calling thread's, or null.
Impersonation* Current() noexcept {
    const auto* const pMine = Impersonations::Mine();
    return pMine != nullptr ? pMine->get() : nullptr;
}

// The calling thread's place for one, which goes with it unless there is one then.
class Place {
public:
    // Throws std::bad_alloc.
    Place() {
        constexpr size_t kLookedAt = 2;  // by each: nothing stays for long, and nobody waits long
        ForgetEnded(kLookedAt);
        if (Impersonations::Mine() == nullptr) {
            auto made = Impersonations::Make();
            Registry& registry = TheRegistry();
            const CS_Locker locker(registry.m_section);
            registry.m_threads.Add(std::move(made));
        }
    }
    ~Place() {
        if (Current() == nullptr) {
            Forget();
        }
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    static void Forget() noexcept {
        Impersonations::Records ended;  // after the lock
        Registry& registry = TheRegistry();
        const CS_Locker locker(registry.m_section);
        ended = registry.m_threads.Take();
    }
};

// Plain data: a thread_local with a destructor would keep the library loaded.
struct ThreadState {
    uint32_t m_nServiceScopes;
    bool m_bStuck;
    bool m_bBeganAsService;  // found out at the first Kerberos call
};
constinit thread_local ThreadState t_state{};

int GetStuck(int i_nError) noexcept {
    t_state.m_bStuck = true;
    S_TRACE("ssoplugin: GetStuck() -- The thread could not be made the service again: error %1.", i_nError);
    return i_nError;
}

// Makes the thread the service for good; 0, or an errno and the record kept for another try.
int End(Impersonation& io_impersonation) noexcept {
    if (const int nError = io_impersonation.m_service.Restore(&*io_impersonation.m_pIdentity->m_account); nError != 0) {
        return GetStuck(nError);
    }
    t_state.m_bStuck = false;
    Impersonations::Mine()->reset();
    return 0;
}

int Begin(std::unique_ptr<Impersonation> i_pImpersonation) noexcept {
    bool bStuck = false;
    const int nError = i_pImpersonation->Exchange(bStuck);
    if (nError == 0 || bStuck) {
        *Impersonations::Mine() = std::move(i_pImpersonation);
    }
    return bStuck ? GetStuck(nError) : nError;
}

}  // namespace

int ImpersonateIdentity(std::shared_ptr<const TokenIdentity> i_pIdentity) noexcept {
    if (t_state.m_bStuck || t_state.m_nServiceScopes != 0 || !i_pIdentity->m_account) {
        return EPERM;
    }
    if (i_pIdentity->m_account->m_nUser == 0 && !i_pIdentity->m_bService) {
        return EPERM;  // no logon makes a root of anybody, by whatever way it comes here
    }
    try {
        if (const int nError = Current() == nullptr ? RestoreInheritedThread() : 0; nError != 0) {
            return GetStuck(nError);
        }
        auto pNext = std::make_unique<Impersonation>();
        pNext->m_pIdentity = std::move(i_pIdentity);
        std::unique_ptr<Impersonation> pEarlier;
        const Place place;
        Impersonation* const pNow = Current();
        pNext->m_service = pNow != nullptr ? pNow->m_service : ThreadCredentials::OfThisThread();
        KeepServiceRecord(pNext->m_service, pNext->m_pIdentity->m_account->m_nUser);
        // Nothing may throw once the earlier impersonation has ended.
        if (pNow != nullptr) {
            pEarlier = std::make_unique<Impersonation>(*pNow);  // to go back to, should the next one fail
            if (const int nError = End(*pNow); nError != 0) {
                return nError;
            }
        }
        const int nError = Begin(std::move(pNext));
        if (nError != 0 && !t_state.m_bStuck && pEarlier && Begin(std::move(pEarlier)) != 0) {
            // The host thinks that the thread is still the earlier user, and it is the service.
            t_state.m_bStuck = true;
        }
        return nError;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const std::system_error& error) {
        return error.code().value();
    }
}

int RevertThread() noexcept {
    if (Impersonation* const pNow = Current()) {
        const int nError = End(*pNow);
        if (nError == 0) {
            Place::Forget();
        }
        return nError;
    }
    if (const int nError = RestoreInheritedThread(); nError != 0) {
        return GetStuck(nError);
    }
    t_state.m_bStuck = false;
    return 0;
}

std::shared_ptr<const TokenIdentity> ImpersonatedIdentity() noexcept {
    const Impersonation* const pNow = Current();
    return pNow != nullptr ? pNow->m_pIdentity : nullptr;
}

bool IsThreadStuck() noexcept {
    return t_state.m_bStuck;
}

UnixAccount ServiceAccount() {
    const Impersonation* const pNow = Current();
    return pNow != nullptr ? pNow->m_service.m_account : ThreadCredentials::AccountOfThisThread();
}

ServiceScope::ServiceScope() noexcept : m_bService(!t_state.m_bStuck) {
    Impersonation* const pNow = Current();
    if (m_bService && pNow == nullptr && !t_state.m_bBeganAsService) {
        t_state.m_bBeganAsService = !IsThreadInherited();
        if (!t_state.m_bBeganAsService) {
            S_TRACE(
                "ssoplugin: ServiceScope::ServiceScope() -- The thread began as a user, and makes no Kerberos call "
                "before a revert.");
            m_bService = false;
        }
    }
    if (m_bService && t_state.m_nServiceScopes == 0 && pNow != nullptr) {
        if (const int nError = pNow->m_service.Restore(&*pNow->m_pIdentity->m_account); nError != 0) {
            GetStuck(nError);
            m_bService = false;
        }
    }
    if (m_bService) {
        ++t_state.m_nServiceScopes;
    }
}

ServiceScope::~ServiceScope() {
    if (!m_bService || --t_state.m_nServiceScopes != 0 || Current() == nullptr) {
        return;
    }
    bool bStuck = false;
    if (const int nError = Current()->Exchange(bStuck); nError != 0) {
        // The service's rights stay with a thread that was to be the user: what it calls next fails until it reverts.
        GetStuck(nError);
    }
}

}  // namespace morwen
