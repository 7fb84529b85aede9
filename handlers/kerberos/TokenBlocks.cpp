#include "handlers/kerberos/TokenBlocks.h"

#include <algorithm>
#include <cstdlib>

#include "harrow/lifetime/SecureWipe.h"

namespace morwen {

TokenBlocks::~TokenBlocks() {
    for (const Kept& kept : m_aKept) {
        if (!kept.m_bInUse.load(std::memory_order_acquire)) {
            std::free(kept.m_pBlock.load(std::memory_order_relaxed));
        }
    }
}

TokenBlocks::Kept* TokenBlocks::Find(const uint8_t* i_pBlock) noexcept {
    const auto it = std::find_if(m_aKept.begin(), m_aKept.end(), [i_pBlock](const Kept& i_kept) {
        return i_kept.m_pBlock.load(std::memory_order_relaxed) == i_pBlock;
    });
    return i_pBlock != nullptr && it != m_aKept.end() ? &*it : nullptr;
}

uint8_t* TokenBlocks::Allocate(uint64_t i_nSize) noexcept {
    for (Kept& kept : m_aKept) {
        if (kept.m_bInUse.load(std::memory_order_relaxed) || kept.m_bInUse.exchange(true, std::memory_order_acquire)) {
            continue;
        }
        uint8_t* pBlock = kept.m_pBlock.load(std::memory_order_relaxed);
        if (pBlock == nullptr) {
            pBlock = static_cast<uint8_t*>(std::calloc(i_nSize, 1));
            kept.m_nSize = i_nSize;
            kept.m_pBlock.store(pBlock, std::memory_order_relaxed);
        }
        if (pBlock != nullptr && kept.m_nSize == i_nSize) {
            kept.m_nWritten = i_nSize;
            return pBlock;
        }
        kept.m_bInUse.store(false, std::memory_order_release);
        if (pBlock == nullptr) {
            return nullptr;
        }
    }
    return static_cast<uint8_t*>(std::calloc(i_nSize, 1));
}

void TokenBlocks::SetWritten(const uint8_t* i_pBlock, uint64_t i_nBytes) noexcept {
    if (Kept* const pKept = Find(i_pBlock)) {
        pKept->m_nWritten = std::min(i_nBytes, pKept->m_nSize);
    }
}

void TokenBlocks::Free(uint8_t* i_pBlock) noexcept {
    Kept* const pKept = Find(i_pBlock);
    if (pKept == nullptr) {
        std::free(i_pBlock);
        return;
    }
    Harrowlib201::SecureWipe(i_pBlock, pKept->m_nWritten);
    pKept->m_bInUse.store(false, std::memory_order_release);
}

}  // namespace morwen
