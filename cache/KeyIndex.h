// Finds a kept context by its key in a few reads of memory, however many there are.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "handlers/StaticToken.h"

namespace morwen {

// Beside an ordered map, whose search reads two places in memory for each halving: a table of hashes with open
// addressing, in parts, so that none takes long to grow. Keys may be a user's choice, by way of a host, so the hash has
// a secret of its own. Whoever holds the map's lock may use it; takes none itself.
class KeyIndex {
    struct Part;
    static constexpr unsigned kPartBits = 8;

public:
    using Parts = std::array<Part, size_t{1} << kPartBits>;
    using Map = std::map<SWCharString, StaticTokenPtr>;

    // What a lookup needs, in one place.
    struct Slot {
        uint64_t m_nHash = 0;    // of an entry never 0
        uint64_t m_nNumber = 0;  // that the key is, as most are; else 0, and the key is the entry's
        Map::iterator m_entry;
        SDateTime m_expiry;  // as the token's has been (StaticToken::GetKnownExpiry)
    };

    // Throws std::bad_alloc, and what the system's source of random numbers does.
    KeyIndex();

    // A key, and what is worked out of it.
    struct Sought {
        std::u16string_view m_key;
        uint64_t m_nNumber = 0;  // as in a slot
        uint64_t m_nHash = 0;
    };
    // Has the place brought near, too, where a lookup will begin.
    Sought Seek(std::u16string_view i_key) const noexcept;

    // The map's end where there is none.
    Map::iterator Find(std::u16string_view i_key, Map::iterator i_end) const noexcept;
    // Null where there is none.
    const Slot* Lookup(const Sought& i_sought) const noexcept;
    // The entry's token, or its expiry, is another one now.
    void Update(Map::iterator i_entry) noexcept;
    // An entry whose key is not there. Throws std::bad_alloc and leaves everything as it was.
    void Add(Map::iterator i_entry);
    // Does nothing where it is not there.
    void Remove(Map::iterator i_entry) noexcept;
    // All of them at once; what is returned may take its time to go.
    Parts Clear() noexcept;

private:
    // Of a size that is a power of two, at most three quarters of it in use; or empty.
    struct Part {
        std::vector<Slot> m_slots;
        size_t m_nUsed = 0;

        size_t Next(size_t i_nAt) const noexcept { return (i_nAt + 1) & (m_slots.size() - 1); }
        // The lowest bit is the same of all.
        size_t Home(uint64_t i_nHash) const noexcept { return (i_nHash >> 1U) & (m_slots.size() - 1); }
        void Put(const Slot& i_slot) noexcept;
        // Where the entry with this key is, or the size when it is not there.
        size_t Search(const Sought& i_sought) const noexcept;
    };

    Sought Of(std::u16string_view i_key) const noexcept;
    static size_t PartOf(uint64_t i_nHash) noexcept { return static_cast<size_t>(i_nHash >> (64 - kPartBits)); }

    std::array<uint64_t, 2> m_aSecret{};
    Parts m_aParts;
};

}  // namespace morwen
