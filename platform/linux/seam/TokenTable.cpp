#include "platform/linux/seam/TokenTable.h"

#include <utility>

#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/seam/HandleTable.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

struct OpenedToken {
    explicit OpenedToken(std::shared_ptr<const TokenIdentity> i_pIdentity) noexcept
        : m_pIdentity(std::move(i_pIdentity)) {}

    const std::shared_ptr<const TokenIdentity> m_pIdentity;
    Harrowlib201::CS_Wrapper m_section;
    // Made at the first call and then kept: who asks for the groups asks several times.
    std::shared_ptr<const TokenSids> m_pSids S_GUARDED_BY(m_section);
};

// The mark in a handle's upper bits makes an address that no pointer has, so a foreign one finds nothing.
constexpr uintptr_t kMark = uintptr_t{0x4D54} << 48;
constexpr uintptr_t kMarkBits = uintptr_t{0xFFFF} << 48;
constexpr uintptr_t kKind = 0x746F6B6E;
constexpr unsigned kUnusedBits = 2;

HandleTable<OpenedToken>& Table() noexcept {
    static Harrowlib201::NeverDestroyed<HandleTable<OpenedToken>> s_table(kKind);
    return *s_table;
}

SecHandle TableHandle(HANDLE i_hToken) noexcept {
    const auto nHandle = reinterpret_cast<uintptr_t>(i_hToken);
    const bool bMarked = (nHandle & kMarkBits) == kMark && nHandle % (1U << kUnusedBits) == 0;
    return {(nHandle & ~kMarkBits) >> kUnusedBits, bMarked ? kKind : 0};
}

std::shared_ptr<OpenedToken> Find(HANDLE i_hToken) noexcept {
    const SecHandle handle = TableHandle(i_hToken);
    return Table().Find(&handle);
}

}  // namespace

HANDLE OpenToken(std::shared_ptr<const TokenIdentity> i_pIdentity) {
    const SecHandle handle = Table().Add(std::make_shared<OpenedToken>(std::move(i_pIdentity)));
    return reinterpret_cast<HANDLE>(kMark | handle.dwLower << kUnusedBits);
}

std::shared_ptr<const TokenIdentity> FindToken(HANDLE i_hToken) noexcept {
    const auto pToken = Find(i_hToken);
    return pToken != nullptr ? pToken->m_pIdentity : nullptr;
}

std::shared_ptr<const TokenSids> SidsOfToken(HANDLE i_hToken) {
    const auto pToken = Find(i_hToken);
    if (pToken == nullptr) {
        return nullptr;
    }
    const CS_Locker locker(pToken->m_section);  // nobody else's
    if (pToken->m_pSids == nullptr) {
        if (auto sids = SidsOf(*pToken->m_pIdentity)) {
            pToken->m_pSids = std::make_shared<const TokenSids>(std::move(*sids));
        }
    }
    return pToken->m_pSids;
}

bool CloseToken(HANDLE i_hToken) noexcept {
    const SecHandle handle = TableHandle(i_hToken);
    return Table().Remove(&handle) != nullptr;
}

}  // namespace morwen
