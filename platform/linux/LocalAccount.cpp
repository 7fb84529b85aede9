// The account of this machine that a Kerberos principal stands for.
#include "platform/linux/LocalAccount.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <system_error>

#include "platform/linux/FailureText.h"
#include "platform/linux/Krb5Owners.h"

namespace morwen {

namespace {

constexpr uint64_t kUnixAuthority = 22;
constexpr uint32_t kUnixUsers = 1;
constexpr uint32_t kUnixGroups = 2;

// Far beyond any real record; a directory service that answers "too small" for ever must not eat the memory.
constexpr size_t kMostBytes = size_t{1} << 20;
// The kernel allows 65,536 groups to a process.
constexpr size_t kMostGroups = size_t{1} << 17;

struct Account {
    uid_t m_nUser = 0;
    gid_t m_nGroup = 0;
};

std::string NameOf(krb5_context i_context, krb5_const_principal i_principal) {
    Krb5Text text(i_context);
    return krb5_unparse_name(i_context, i_principal, text.Receive()) == 0 ? text.get() : "?";
}

krb5_error_code LocalName(krb5_context i_context, krb5_const_principal i_principal, std::string& o_name) {
    krb5_error_code nCode = KRB5_CONFIG_NOTENUFSPACE;
    for (size_t nSize = 256; nCode == KRB5_CONFIG_NOTENUFSPACE && nSize <= kMostBytes; nSize *= 4) {
        o_name.assign(nSize, '\0');
        nCode = krb5_aname_to_localname(i_context, i_principal, static_cast<int>(nSize), o_name.data());
    }
    o_name.resize(std::strlen(o_name.c_str()));
    return nCode;
}

// 0, or an errno; ENOENT when there is no such account.
int FindAccount(const std::string& i_name, Account& o_account) {
    int nError = ERANGE;
    for (size_t nSize = 1024; nError == ERANGE && nSize <= kMostBytes; nSize *= 4) {
        std::vector<char> buffer(nSize);
        passwd record{};
        passwd* pFound = nullptr;
        do {
            nError = getpwnam_r(i_name.c_str(), &record, buffer.data(), buffer.size(), &pFound);
        } while (nError == EINTR);
        if (pFound != nullptr) {
            o_account = {record.pw_uid, record.pw_gid};
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

}  // namespace

std::shared_ptr<TokenIdentity> UnixIdentity(uid_t i_nUser, std::span<const gid_t> i_groups) {
    auto pIdentity = std::make_shared<TokenIdentity>();
    pIdentity->m_user = Sid(kUnixAuthority, {kUnixUsers, i_nUser});
    std::set<gid_t> seen;
    for (const gid_t nGroup : i_groups) {
        if (seen.insert(nGroup).second) {
            pIdentity->m_groups.push_back(Sid(kUnixAuthority, {kUnixGroups, nGroup}));
        }
    }
    if (!i_groups.empty()) {
        pIdentity->m_account = UnixAccount{i_nUser, i_groups.front(), {i_groups.begin(), i_groups.end()}};
        pIdentity->m_account->SortGroups();
    }
    return pIdentity;
}

std::shared_ptr<TokenIdentity> LocalAccountIdentity(krb5_context i_context, krb5_const_principal i_principal,
                                                    SECURITY_STATUS& o_nStatus) {
    std::string name;
    if (const krb5_error_code nCode = LocalName(i_context, i_principal, name); nCode != 0) {
        o_nStatus = FailWithKrb5(i_context, nCode, "mapping " + NameOf(i_context, i_principal) + " to a local account");
        return nullptr;
    }
    const auto fail = [&](const std::string& i_reason) {
        o_nStatus = FailWith(SEC_E_NO_IMPERSONATION, NameOf(i_context, i_principal) + " maps to the local account \"" +
                                                         name + "\", " + i_reason);
        return nullptr;
    };
    Account account;
    if (const int nError = FindAccount(name, account); nError == ENOENT) {
        return fail("which does not exist on this machine");
    } else if (nError != 0) {
        return fail("which could not be looked up: " + std::generic_category().message(nError));
    }
    const std::vector<gid_t> groups = GroupsOf(name, account.m_nGroup);
    if (groups.empty()) {
        return fail("whose groups could not be looked up");
    }
    o_nStatus = SEC_E_OK;
    return UnixIdentity(account.m_nUser, groups);
}

}  // namespace morwen
