// The memory of output tokens.
#pragma once

#include <array>
#include <cstdint>

#include "harrow/locks/CS_Wrapper.h"

namespace morwen {

// Zero-filled blocks of the heap. A block takes tens of kilobytes and a token a few hundred bytes of it, so that to
// clear each block whole would take longer than anything else that the plug-in itself does for a login, and would drive
// what it works with out of the processor's cache. Some blocks are therefore kept, and only what was written is
// cleared. A block is ordinary memory: it may outlive this object, and goes back through any other one. Many threads at
// once.
class TokenBlocks {
public:
    TokenBlocks() = default;
    ~TokenBlocks();
    TokenBlocks(const TokenBlocks&) = delete;
    TokenBlocks& operator=(const TokenBlocks&) = delete;

    // Null when memory is short.
    uint8_t* Allocate(uint64_t i_nSize) noexcept;
    // Says that nothing was written behind the first bytes of the block; until then all of it counts as written.
    void SetWritten(const uint8_t* i_pBlock, uint64_t i_nBytes) noexcept;
    void Free(uint8_t* i_pBlock) noexcept;

private:
    struct Kept {
        uint8_t* m_pBlock = nullptr;
        uint64_t m_nSize = 0;
        uint64_t m_nWritten = 0;
        bool m_bInUse = false;
    };

    // The block's own record, or none for a block that is not kept. Null finds a record without a block.
    Kept* Find(const uint8_t* i_pBlock) noexcept S_REQUIRES(m_section);

    static constexpr size_t kMostKept = 8;  // as many threads shake hands at once without clearing whole blocks

    Harrowlib201::CS_Wrapper m_section;
    std::array<Kept, kMostKept> m_aKept S_GUARDED_BY(m_section){};
};

}  // namespace morwen
