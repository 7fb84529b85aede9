#include "platform/linux/logon/HeldAccounts.h"

#include <ctime>
#include <map>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CRWLock.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr int64_t kHeldNanoseconds = 1'000'000'000;

// Users who log on within one second; beyond, all are looked up anew.
constexpr size_t kMostAccounts = 1024;

int64_t Now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * kHeldNanoseconds + now.tv_nsec;
}

struct Account {
    UnixAccount m_account;
    int64_t m_nLookedUpAt = 0;
};

struct Accounts {
    CRWLock m_lock;
    std::map<std::string, Account> m_byPrincipal S_GUARDED_BY(m_lock);
};

Accounts& TheAccounts() noexcept {
    static Harrowlib201::NeverDestroyed<Accounts> s_accounts;
    return *s_accounts;
}

// What it holds must not count as lost when the library is unloaded.
const AtUnload s_clear([] {
    Accounts& accounts = TheAccounts();
    const CSmartWriteLocker locker(accounts.m_lock);
    accounts.m_byPrincipal.clear();
});

}  // namespace

std::optional<UnixAccount> HeldAccounts::Get(const std::string& i_principal) {
    Accounts& accounts = TheAccounts();
    const CSmartReadLocker locker(accounts.m_lock);
    const auto found = accounts.m_byPrincipal.find(i_principal);
    if (found == accounts.m_byPrincipal.end() || Now() - found->second.m_nLookedUpAt >= kHeldNanoseconds) {
        return std::nullopt;
    }
    return found->second.m_account;
}

void HeldAccounts::Hold(const std::string& i_principal, const UnixAccount& i_account) {
    Accounts& accounts = TheAccounts();
    const CSmartWriteLocker locker(accounts.m_lock);
    if (accounts.m_byPrincipal.size() >= kMostAccounts) {
        accounts.m_byPrincipal.clear();
    }
    accounts.m_byPrincipal[i_principal] = {i_account, Now()};
}

}  // namespace morwen
