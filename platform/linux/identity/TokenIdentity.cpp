// Who a token stands for, and the table of open tokens.
#include "platform/linux/identity/TokenIdentity.h"

#include <map>
#include <utility>

#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/wire/PacLogonInfo.h"

namespace morwen {

using Harrowlib201::CS_Locker;
using Harrowlib201::CS_Wrapper;

namespace {

// No handle value is ever used twice, so a stale one finds nothing. The mark in the upper bits makes an address that no
// pointer has, so a foreign one finds nothing either.
constexpr uintptr_t kMark = uintptr_t{0x4D54} << 48;

class TokenTable {
public:
    HANDLE Add(std::shared_ptr<const TokenIdentity> i_pIdentity) {
        const CS_Locker locker(m_section);
        const uintptr_t nHandle = kMark | (m_nLast += 4);
        m_tokens.emplace(nHandle, Token{std::move(i_pIdentity), nullptr});
        return reinterpret_cast<HANDLE>(nHandle);
    }

    std::shared_ptr<const TokenIdentity> Find(HANDLE i_hToken) noexcept {
        const CS_Locker locker(m_section);
        const auto itToken = m_tokens.find(reinterpret_cast<uintptr_t>(i_hToken));
        return itToken != m_tokens.end() ? itToken->second.m_pIdentity : nullptr;
    }

    // Made at the first call and then kept with the token: who asks for the groups asks several times.
    std::shared_ptr<const TokenSids> Sids(HANDLE i_hToken) {
        const auto pIdentity = Find(i_hToken);
        if (pIdentity == nullptr) {
            return nullptr;
        }
        const auto with = [&](auto i_use) {
            const CS_Locker locker(m_section);
            const auto itToken = m_tokens.find(reinterpret_cast<uintptr_t>(i_hToken));
            return itToken != m_tokens.end() ? i_use(itToken->second.m_pSids) : nullptr;
        };
        using Sids = std::shared_ptr<const TokenSids>;
        if (Sids pKnown = with([](Sids& i_pSids) { return i_pSids; })) {
            return pKnown;
        }
        auto sids = SidsOf(*pIdentity);
        Sids pMade = sids ? std::make_shared<const TokenSids>(std::move(*sids)) : nullptr;
        with([&pMade](Sids& io_pSids) { return io_pSids = pMade; });
        return pMade;
    }

    bool Remove(HANDLE i_hToken) noexcept {
        // Taken out under the lock, destroyed without it.
        Tokens::node_type removed;
        const CS_Locker locker(m_section);
        removed = m_tokens.extract(reinterpret_cast<uintptr_t>(i_hToken));
        return !removed.empty();
    }

private:
    struct Token {
        std::shared_ptr<const TokenIdentity> m_pIdentity;
        std::shared_ptr<const TokenSids> m_pSids;
    };
    using Tokens = std::map<uintptr_t, Token>;

    CS_Wrapper m_section;
    uintptr_t m_nLast S_GUARDED_BY(m_section) = 0;
    Tokens m_tokens S_GUARDED_BY(m_section);
};

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

TokenTable& Table() noexcept {
    static Harrowlib201::NeverDestroyed<TokenTable> s_table;
    return *s_table;
}

}  // namespace

std::optional<TokenSids> SidsOf(const TokenIdentity& i_identity) {
    if (i_identity.m_pacLogonInfo) {
        return ReadPacLogonInfo(*i_identity.m_pacLogonInfo);
    }
    return i_identity.m_account ? std::optional(UnixSids(*i_identity.m_account)) : std::nullopt;
}

HANDLE OpenToken(std::shared_ptr<const TokenIdentity> i_pIdentity) {
    return Table().Add(std::move(i_pIdentity));
}

std::shared_ptr<const TokenIdentity> FindToken(HANDLE i_hToken) noexcept {
    return Table().Find(i_hToken);
}

std::shared_ptr<const TokenSids> SidsOfToken(HANDLE i_hToken) {
    return Table().Sids(i_hToken);
}

bool CloseToken(HANDLE i_hToken) noexcept {
    return Table().Remove(i_hToken);
}

}  // namespace morwen
