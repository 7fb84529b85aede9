// The memory of output tokens.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace morwen {

// Zero-filled blocks of the heap. A block takes tens of kilobytes and a token a few hundred bytes of it, so that to
// clear each block whole would take longer than anything else that the plug-in itself does for a login, and would drive
// what it works with out of the processor's cache. Some blocks are therefore kept, and only what was written is
// cleared. A block is ordinary memory: it may outlive this object, and goes back through any other one. Many threads at
// once, without a lock.
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
    // Who has set the mark owns the rest until it is cleared; a block that is there once stays.
    struct Kept {
        std::atomic<bool> m_bInUse{false};
        std::atomic<uint8_t*> m_pBlock{nullptr};
        uint64_t m_nSize = 0;
        uint64_t m_nWritten = 0;
    };

    // The block's own record, or none for a block that is not kept.
    Kept* Find(const uint8_t* i_pBlock) noexcept;

    static constexpr size_t kMostKept = 8;  // as many threads shake hands at once without clearing whole blocks

    std::array<Kept, kMostKept> m_aKept;
};

}  // namespace morwen
