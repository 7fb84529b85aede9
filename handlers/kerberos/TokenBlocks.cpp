#include "handlers/kerberos/TokenBlocks.h"

#include <algorithm>
#include <cstdlib>

#include "harrow/lifetime/SecureWipe.h"

namespace morwen {

using Harrowlib201::CS_Locker;

TokenBlocks::~TokenBlocks() {
    const CS_Locker locker(m_section);
    for (const Kept& kept : m_aKept) {
        if (!kept.m_bInUse) {
            std::free(kept.m_pBlock);
        }
    }
}

TokenBlocks::Kept* TokenBlocks::Find(const uint8_t* i_pBlock) noexcept {
    const auto it = std::find_if(m_aKept.begin(), m_aKept.end(),
                                 [i_pBlock](const Kept& i_kept) { return i_kept.m_pBlock == i_pBlock; });
    return it != m_aKept.end() ? &*it : nullptr;
}

uint8_t* TokenBlocks::Allocate(uint64_t i_nSize) noexcept {
    const CS_Locker locker(m_section);
    for (Kept& kept : m_aKept) {
        if (kept.m_pBlock != nullptr && !kept.m_bInUse && kept.m_nSize == i_nSize) {
            kept.m_bInUse = true;
            kept.m_nWritten = i_nSize;
            return kept.m_pBlock;
        }
    }
    auto* const pBlock = static_cast<uint8_t*>(std::calloc(i_nSize, 1));
    if (Kept* const pKept = pBlock != nullptr ? Find(nullptr) : nullptr) {
        *pKept = {pBlock, i_nSize, i_nSize, true};
    }
    return pBlock;
}

void TokenBlocks::SetWritten(const uint8_t* i_pBlock, uint64_t i_nBytes) noexcept {
    const CS_Locker locker(m_section);
    if (Kept* const pKept = i_pBlock != nullptr ? Find(i_pBlock) : nullptr) {
        pKept->m_nWritten = std::min(i_nBytes, pKept->m_nSize);
    }
}

void TokenBlocks::Free(uint8_t* i_pBlock) noexcept {
    const CS_Locker locker(m_section);
    Kept* const pKept = i_pBlock != nullptr ? Find(i_pBlock) : nullptr;
    if (pKept == nullptr) {
        std::free(i_pBlock);
        return;
    }
    Harrowlib201::SecureWipe(i_pBlock, pKept->m_nWritten);
    pKept->m_bInUse = false;
}

}  // namespace morwen
