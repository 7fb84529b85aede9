#include "platform/linux/identity/TokenIdentity.h"

#include "platform/linux/wire/PacLogonInfo.h"

namespace morwen {

namespace {

// The user is S-1-22-1-uid, the groups are S-1-22-2-gid, the primary group first, none twice.
TokenSids UnixSids(const UnixAccount& i_account) {
    constexpr uint64_t kUnixAuthority = 22;
    constexpr uint32_t kUnixUsers = 1;
    constexpr uint32_t kUnixGroups = 2;
    TokenSids sids{Sid(kUnixAuthority, {kUnixUsers, i_account.m_nUser}), {}};
    sids.m_groups.reserve(1 + i_account.m_groups.size());
    sids.m_groups.push_back(Sid(kUnixAuthority, {kUnixGroups, i_account.m_nGroup}));
    for (const gid_t nGroup : i_account.m_groups) {
        if (nGroup != i_account.m_nGroup) {
            sids.m_groups.push_back(Sid(kUnixAuthority, {kUnixGroups, nGroup}));
        }
    }
    return sids;
}

}  // namespace

std::optional<TokenSids> SidsOf(const TokenIdentity& i_identity) {
    if (i_identity.m_pPacLogonInfo != nullptr) {
        return ReadPacLogonInfo(*i_identity.m_pPacLogonInfo);
    }
    return i_identity.m_account ? std::optional(UnixSids(*i_identity.m_account)) : std::nullopt;
}

}  // namespace morwen
