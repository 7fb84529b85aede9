// The account of this machine that a Kerberos principal stands for.
#include "platform/linux/logon/LocalAccount.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/HeldMap.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/logon/LocalName.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

constexpr int64_t kHeldNanoseconds = 1'000'000'000;
// More users than log on within a second.
constexpr size_t kMostAccounts = 1024;

int64_t Now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * kHeldNanoseconds + now.tv_nsec;
}

// A lookup reads the machine's account files or asks a directory, and a user's programs log on several times in a row.
// What is held is forgotten after a second, so that a change of the account, or of the rules that map names to
// accounts, is no later than that in a new logon; the identity of a logon that is done does not change anyway. That
// there is no account is not held.
class HeldAccounts {
public:
    std::optional<UnixAccount> Get(const std::string& i_principal) {
        const CS_Locker locker(m_section);
        const Account* const pHeld = m_accounts.Find(i_principal);
        return pHeld != nullptr && Now() - pHeld->m_nLookedUpAt < kHeldNanoseconds ? std::optional(pHeld->m_account)
                                                                                   : std::nullopt;
    }
    void Hold(const std::string& i_principal, const UnixAccount& i_account) {
        const CS_Locker locker(m_section);
        m_accounts.Hold(i_principal, {i_account, Now()});
    }
    void Clear() noexcept {
        const CS_Locker locker(m_section);
        m_accounts.Clear();
    }

private:
    struct Account {
        UnixAccount m_account;
        int64_t m_nLookedUpAt = 0;
    };

    Harrowlib201::CS_Wrapper m_section;
    Harrowlib201::HeldMap<std::string, Account, kMostAccounts> m_accounts S_GUARDED_BY(m_section);
};

// Realms whose KDCs say who a user is.
class NamingRealms {
public:
    void Note(std::string_view i_realm) {
        const CS_Locker locker(m_section);
        if (m_realms.size() < kMostRealms && m_realms.find(i_realm) == m_realms.end()) {
            m_realms.emplace(i_realm);
        }
    }
    bool Has(std::string_view i_realm) {
        const CS_Locker locker(m_section);
        return m_realms.find(i_realm) != m_realms.end();
    }
    void Clear() noexcept {
        const CS_Locker locker(m_section);
        m_realms.clear();
    }

private:
    static constexpr size_t kMostRealms = 64;

    Harrowlib201::CS_Wrapper m_section;
    std::set<std::string, std::less<>> m_realms S_GUARDED_BY(m_section);
};

NamingRealms& Naming() noexcept {
    static Harrowlib201::NeverDestroyed<NamingRealms> s_realms;
    return *s_realms;
}

HeldAccounts& Held() noexcept {
    static Harrowlib201::NeverDestroyed<HeldAccounts> s_accounts;
    return *s_accounts;
}

// What it holds must not count as lost when the library is unloaded.
const Harrowlib201::AtUnload s_clear([] {
    Held().Clear();
    Naming().Clear();
});

// Far beyond any real record; a directory service that answers "too small" endlessly must not eat the memory.
constexpr size_t kMostBytes = size_t{1} << 20;
// The kernel allows 65,536 groups to a process.
constexpr size_t kMostGroups = size_t{1} << 17;

std::string_view TextOf(const krb5_data& i_data) noexcept {
    return {i_data.data, i_data.length};
}

// The bytes of account name and principal, so that no two have one key.
std::string KeyOf(const krb5_principal_data& i_principal, const std::optional<std::string>& i_accountName) {
    std::string key = i_accountName ? std::to_string(i_accountName->size()) + ":" + *i_accountName : std::string("-");
    const auto append = [&key](const krb5_data& i_part) {
        key.append(std::to_string(i_part.length)).push_back(':');
        key.append(i_part.data, i_part.length);
    };
    append(i_principal.realm);
    for (krb5_int32 i = 0; i < i_principal.length; ++i) {
        append(i_principal.data[i]);
    }
    return key;
}

// 0, or an errno; ENOENT when there is no such account.
int FindAccount(const std::string& i_name, UnixAccount& o_account) {
    int nError = ERANGE;
    for (size_t nSize = 1024; nError == ERANGE && nSize <= kMostBytes; nSize *= 4) {
        std::vector<char> buffer(nSize);
        passwd record{};
        passwd* pFound = nullptr;
        do {
            nError = getpwnam_r(i_name.c_str(), &record, buffer.data(), buffer.size(), &pFound);
        } while (nError == EINTR);
        if (pFound != nullptr) {
            o_account = {record.pw_uid, record.pw_gid, {}};
            return 0;
        }
    }
    return nError != 0 ? nError : ENOENT;
}

// Empty when the groups could not be read. The account's own group comes first.
std::vector<gid_t> GroupsOf(const std::string& i_name, gid_t i_nGroup) {
    for (size_t nRoom = 64; nRoom <= kMostGroups; nRoom *= 4) {
        std::vector<gid_t> groups(nRoom);
        int nCount = static_cast<int>(nRoom);
        if (getgrouplist(i_name.c_str(), i_nGroup, groups.data(), &nCount) >= 0) {
            groups.resize(static_cast<size_t>(nCount));
            return groups;
        }
    }
    return {};
}

bool AreSameName(std::string_view i_left, std::string_view i_right) noexcept {
    const auto lower = [](char i_c) { return i_c >= 'A' && i_c <= 'Z' ? static_cast<char>(i_c + 32) : i_c; };
    return std::equal(i_left.begin(), i_left.end(), i_right.begin(), i_right.end(),
                      [&](char i_a, char i_b) { return lower(i_a) == lower(i_b); });
}

// Why the principal's name does not say who the user is; empty when it does.
std::string DoubtOf(const krb5_principal_data& i_principal, const std::optional<std::string>& i_accountName) {
    if (!i_accountName) {
        return Naming().Has(TextOf(i_principal.realm))
                   ? "brings a ticket without the logon information that others of this realm have"
                   : "";
    }
    if (i_accountName->empty()) {
        return "brings logon information that names no account";
    }
    if (i_principal.length == 1 && AreSameName(TextOf(i_principal.data[0]), *i_accountName)) {
        return {};
    }
    return "is the account \"" + *i_accountName + "\" of its directory";
}

}  // namespace

void NoteNamingRealm(const krb5_principal_data& i_principal) {
    Naming().Note(TextOf(i_principal.realm));
}

std::optional<UnixAccount> LocalAccount(krb5_context i_context, krb5_const_principal i_principal,
                                        const std::optional<std::u16string>& i_accountName,
                                        SECURITY_STATUS& o_nStatus) {
    const auto accountName =
        i_accountName ? std::optional(Harrowlib201::SWCharStringConv::ToUtf8(*i_accountName)) : std::nullopt;
    const std::string doubt = DoubtOf(*i_principal, accountName);
    if (!doubt.empty() && !IsMappedExplicitly(i_context, i_principal)) {
        o_nStatus = FailWith(SEC_E_NO_IMPERSONATION,
                             PrincipalText(i_context, i_principal) + " " + doubt +
                                 ", and stands for no local account unless krb5.conf names this principal; see "
                                 "auth_to_local");
        return std::nullopt;
    }
    const std::string key = KeyOf(*i_principal, accountName);
    if (auto held = Held().Get(key)) {
        o_nStatus = SEC_E_OK;
        return held;
    }
    std::string name;
    if (const krb5_error_code nCode = LocalName(i_context, i_principal, name); nCode != 0) {
        o_nStatus = FailWithKrb5(
            i_context, nCode,
            "mapping " + PrincipalText(i_context, i_principal) + " to a local account by " + WhoseRules(i_context));
        return std::nullopt;
    }
    const auto fail = [&](const std::string& i_reason) {
        o_nStatus = FailWith(SEC_E_NO_IMPERSONATION, PrincipalText(i_context, i_principal) +
                                                         " maps to the local account \"" + name + "\", " + i_reason);
        return std::nullopt;
    };
    UnixAccount account;
    if (const int nError = FindAccount(name, account); nError == ENOENT) {
        return fail("which does not exist on this machine");
    } else if (nError == ENOMEM) {
        throw std::bad_alloc();
    } else if (nError != 0) {
        return fail("which could not be looked up: " + std::generic_category().message(nError));
    }
    account.m_groups = GroupsOf(name, account.m_nGroup);
    if (account.m_groups.empty()) {
        return fail("whose groups could not be looked up");
    }
    account.SortGroups();
    Held().Hold(key, account);
    o_nStatus = SEC_E_OK;
    return account;
}

}  // namespace morwen
