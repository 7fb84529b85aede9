#include "platform/linux/identity/ThreadIdentity.h"

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "harrow/log/STrace.h"
#include "platform/linux/identity/ServiceRecord.h"
#include "platform/linux/identity/ThreadCredentials.h"

namespace morwen {

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

// Plain data: a thread_local with a destructor would keep the library loaded. A thread that ends while it impersonates
// leaves its record behind.
struct ThreadState {
    Impersonation* m_pImpersonation;
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
int End(Impersonation* i_pImpersonation) noexcept {
    if (const int nError = i_pImpersonation->m_service.Restore(&*i_pImpersonation->m_pIdentity->m_account);
        nError != 0) {
        return GetStuck(nError);
    }
    t_state.m_bStuck = false;
    t_state.m_pImpersonation = nullptr;
    delete i_pImpersonation;
    return 0;
}

int Begin(std::unique_ptr<Impersonation> i_pImpersonation) noexcept {
    bool bStuck = false;
    const int nError = i_pImpersonation->Exchange(bStuck);
    if (nError == 0 || bStuck) {
        t_state.m_pImpersonation = i_pImpersonation.release();
    }
    return bStuck ? GetStuck(nError) : nError;
}

}  // namespace

int ImpersonateIdentity(std::shared_ptr<const TokenIdentity> i_pIdentity) noexcept {
    if (t_state.m_bStuck || t_state.m_nServiceScopes != 0 || !i_pIdentity->m_account) {
        return EPERM;
    }
    try {
        if (const int nError = t_state.m_pImpersonation == nullptr ? RestoreInheritedThread() : 0; nError != 0) {
            return GetStuck(nError);
        }
        auto pNext = std::make_unique<Impersonation>();
        pNext->m_pIdentity = std::move(i_pIdentity);
        std::unique_ptr<Impersonation> pEarlier;
        Impersonation* const pNow = t_state.m_pImpersonation;
        pNext->m_service = pNow != nullptr ? pNow->m_service : ThreadCredentials::OfThisThread();
        KeepServiceRecord(pNext->m_service, pNext->m_pIdentity->m_account->m_nUser);
        // Nothing may throw once the earlier impersonation has ended.
        if (pNow != nullptr) {
            pEarlier = std::make_unique<Impersonation>(*pNow);  // to go back to, should the next one fail
            if (const int nError = End(pNow); nError != 0) {
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
    if (t_state.m_pImpersonation != nullptr) {
        return End(t_state.m_pImpersonation);
    }
    if (const int nError = RestoreInheritedThread(); nError != 0) {
        return GetStuck(nError);
    }
    t_state.m_bStuck = false;
    return 0;
}

std::shared_ptr<const TokenIdentity> ImpersonatedIdentity() noexcept {
    return t_state.m_pImpersonation != nullptr ? t_state.m_pImpersonation->m_pIdentity : nullptr;
}

bool IsThreadStuck() noexcept {
    return t_state.m_bStuck;
}

UnixAccount ServiceAccount() {
    return t_state.m_pImpersonation != nullptr ? t_state.m_pImpersonation->m_service.m_account
                                               : ThreadCredentials::AccountOfThisThread();
}

ServiceScope::ServiceScope() noexcept : m_bService(!t_state.m_bStuck) {
    if (m_bService && t_state.m_pImpersonation == nullptr && !t_state.m_bBeganAsService) {
        t_state.m_bBeganAsService = !IsThreadInherited();
        if (!t_state.m_bBeganAsService) {
            S_TRACE(
                "ssoplugin: ServiceScope::ServiceScope() -- The thread began as a user, and makes no Kerberos call "
                "before a revert.");
            m_bService = false;
        }
    }
    if (m_bService && t_state.m_nServiceScopes == 0 && t_state.m_pImpersonation != nullptr) {
        if (const int nError =
                t_state.m_pImpersonation->m_service.Restore(&*t_state.m_pImpersonation->m_pIdentity->m_account);
            nError != 0) {
            GetStuck(nError);
            m_bService = false;
        }
    }
    if (m_bService) {
        ++t_state.m_nServiceScopes;
    }
}

ServiceScope::~ServiceScope() {
    if (!m_bService || --t_state.m_nServiceScopes != 0 || t_state.m_pImpersonation == nullptr) {
        return;
    }
    bool bStuck = false;
    if (const int nError = t_state.m_pImpersonation->Exchange(bStuck); nError != 0) {
        // The service's rights stay with a thread that was to be the user: what it calls next fails until it reverts.
        GetStuck(nError);
    }
}

}  // namespace morwen
