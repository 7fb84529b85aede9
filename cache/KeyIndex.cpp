#include "cache/KeyIndex.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>
#include <utility>

namespace morwen {

namespace {

// SipHash with one round for each word and three at the end, as hash tables use it.
class SipHash {
public:
    explicit SipHash(const std::array<uint64_t, 2>& i_aSecret) noexcept
        : m_aState{i_aSecret[0] ^ 0x736F6D6570736575U, i_aSecret[1] ^ 0x646F72616E646F6DU,
                   i_aSecret[0] ^ 0x6C7967656E657261U, i_aSecret[1] ^ 0x7465646279746573U} {}

    void Add(uint64_t i_nWord) noexcept {
        m_aState[3] ^= i_nWord;
        Round();
        m_aState[0] ^= i_nWord;
    }
    uint64_t End() noexcept {
        m_aState[2] ^= 0xFF;
        Round();
        Round();
        Round();
        return m_aState[0] ^ m_aState[1] ^ m_aState[2] ^ m_aState[3];
    }

private:
    void Half(size_t i_nA, size_t i_nB, size_t i_nC, size_t i_nD, int i_nLeft, int i_nRight) noexcept {
        m_aState[i_nA] += m_aState[i_nB];
        m_aState[i_nC] += m_aState[i_nD];
        m_aState[i_nB] = std::rotl(m_aState[i_nB], i_nLeft) ^ m_aState[i_nA];
        m_aState[i_nD] = std::rotl(m_aState[i_nD], i_nRight) ^ m_aState[i_nC];
        m_aState[i_nA] = std::rotl(m_aState[i_nA], 32);
    }
    void Round() noexcept {
        Half(0, 1, 2, 3, 13, 16);
        Half(2, 1, 0, 3, 17, 21);
    }

    std::array<uint64_t, 4> m_aState;
};

SDateTime ExpiryOf(KeyIndex::Map::iterator i_entry) noexcept {
    return i_entry->second ? i_entry->second->GetKnownExpiry() : StaticToken::kUnknown;
}

// The number whose decimal digits the text is, or 0: no two texts are the same number.
uint64_t NumberOf(std::u16string_view i_key) noexcept {
    constexpr size_t kMostDigits = 19;
    if (i_key.empty() || i_key.size() > kMostDigits || i_key.front() == u'0') {
        return 0;
    }
    uint64_t nNumber = 0;
    if constexpr (std::endian::native == std::endian::little) {
        // Four at a time: the upper three quarters of each are those of a digit, also with 6 added, and the product has
        // all four together in its uppermost 16 bits.
        constexpr uint64_t kEach = 0x0001000100010001;
        constexpr uint64_t kUpper = 0xFFF0 * kEach;
        constexpr uint64_t kDigits = u'0' * kEach;
        for (uint64_t nFour = 0; i_key.size() >= 4; i_key.remove_prefix(4)) {
            std::memcpy(&nFour, i_key.data(), sizeof nFour);
            if ((nFour & kUpper) != kDigits || ((nFour + 6 * kEach) & kUpper) != kDigits) {
                return 0;
            }
            nNumber =
                10000 * nNumber + ((nFour & (0xF * kEach)) * (1000ULL << 48 | 100ULL << 32 | 10ULL << 16 | 1) >> 48);
        }
    }
    for (const char16_t cUnit : i_key) {
        if (cUnit < u'0' || cUnit > u'9') {
            return 0;
        }
        nNumber = 10 * nNumber + (cUnit - u'0');
    }
    return nNumber;
}

}  // namespace

KeyIndex::KeyIndex() {
    std::random_device random;
    for (uint64_t& nSecret : m_aSecret) {
        nSecret = uint64_t{random()} << 32U | random();
    }
}

KeyIndex::Sought KeyIndex::Of(std::u16string_view i_key) const noexcept {
    constexpr size_t kStep = sizeof(uint64_t) / sizeof(char16_t);
    Sought sought{i_key, NumberOf(i_key)};
    SipHash hash(m_aSecret);
    uint64_t nWord = sought.m_nNumber;  // all that there is to the key, unless it is none
    if (nWord == 0) {
        for (; i_key.size() >= kStep; i_key.remove_prefix(kStep)) {
            std::memcpy(&nWord, i_key.data(), sizeof nWord);
            hash.Add(nWord);
        }
        // The last word has room for one unit fewer than it may hold, and for how many there are.
        nWord = i_key.size() + 1;
        for (const char16_t cUnit : i_key) {
            nWord = nWord << 16U | cUnit;
        }
    }
    hash.Add(nWord);
    sought.m_nHash = hash.End() | 1U;
    return sought;
}

KeyIndex::Sought KeyIndex::Seek(std::u16string_view i_key) const noexcept {
    const Sought sought = Of(i_key);
    if (const Part& part = m_aParts[PartOf(sought.m_nHash)]; !part.m_slots.empty()) {
        __builtin_prefetch(&part.m_slots[part.Home(sought.m_nHash)]);
    }
    return sought;
}

void KeyIndex::Part::Put(const Slot& i_slot) noexcept {
    size_t nAt = Home(i_slot.m_nHash);
    while (m_slots[nAt].m_nHash != 0) {
        nAt = Next(nAt);
    }
    m_slots[nAt] = i_slot;
    ++m_nUsed;
}

size_t KeyIndex::Part::Search(const Sought& i_sought) const noexcept {
    if (m_slots.empty()) {
        return 0;
    }
    for (size_t nAt = Home(i_sought.m_nHash); m_slots[nAt].m_nHash != 0; nAt = Next(nAt)) {
        const Slot& slot = m_slots[nAt];
        if (slot.m_nHash == i_sought.m_nHash && slot.m_nNumber == i_sought.m_nNumber &&
            (slot.m_nNumber != 0 || slot.m_entry->first.view() == i_sought.m_key)) {
            return nAt;
        }
    }
    return m_slots.size();
}

const KeyIndex::Slot* KeyIndex::Lookup(const Sought& i_sought) const noexcept {
    const Part& part = m_aParts[PartOf(i_sought.m_nHash)];
    const size_t nAt = part.Search(i_sought);
    return nAt < part.m_slots.size() ? &part.m_slots[nAt] : nullptr;
}

KeyIndex::Map::iterator KeyIndex::Find(std::u16string_view i_key, Map::iterator i_end) const noexcept {
    const Slot* const pSlot = Lookup(Of(i_key));
    return pSlot != nullptr ? pSlot->m_entry : i_end;
}

void KeyIndex::Update(Map::iterator i_entry) noexcept {
    const Sought sought = Of(i_entry->first.view());
    Part& part = m_aParts[PartOf(sought.m_nHash)];
    if (const size_t nAt = part.Search(sought); nAt < part.m_slots.size()) {
        part.m_slots[nAt].m_expiry = ExpiryOf(i_entry);
    }
}

void KeyIndex::Add(Map::iterator i_entry) {
    constexpr size_t kFewest = 4;
    const Sought sought = Of(i_entry->first.view());
    Part& part = m_aParts[PartOf(sought.m_nHash)];
    if (4 * (part.m_nUsed + 1) > 3 * part.m_slots.size()) {
        Part larger;
        larger.m_slots.resize(std::max(kFewest, 2 * part.m_slots.size()));
        for (const Slot& slot : part.m_slots) {
            if (slot.m_nHash != 0) {
                larger.Put(slot);
            }
        }
        part = std::move(larger);
    }
    part.Put({sought.m_nHash, sought.m_nNumber, i_entry, ExpiryOf(i_entry)});
}

void KeyIndex::Remove(Map::iterator i_entry) noexcept {
    const Sought sought = Of(i_entry->first.view());
    Part& part = m_aParts[PartOf(sought.m_nHash)];
    size_t nGap = part.Search(sought);
    if (nGap >= part.m_slots.size()) {
        return;
    }
    // What has been put behind its home because of this entry comes forward, so that no search ends at the gap.
    for (size_t nAt = part.Next(nGap); part.m_slots[nAt].m_nHash != 0; nAt = part.Next(nAt)) {
        const size_t nMask = part.m_slots.size() - 1;
        const size_t nHome = part.Home(part.m_slots[nAt].m_nHash);
        if (((nAt - nHome) & nMask) >= ((nAt - nGap) & nMask)) {
            part.m_slots[nGap] = part.m_slots[nAt];
            nGap = nAt;
        }
    }
    part.m_slots[nGap] = {};
    if (--part.m_nUsed == 0) {
        part.m_slots = {};
    }
}

KeyIndex::Parts KeyIndex::Clear() noexcept {
    return std::exchange(m_aParts, Parts());
}

}  // namespace morwen
