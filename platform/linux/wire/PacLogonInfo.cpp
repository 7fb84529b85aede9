// What a directory says about a user in a ticket: the security identifiers, and the account's name.
#include "platform/linux/wire/PacLogonInfo.h"

#include <array>
#include <cstddef>

namespace morwen {

namespace {

constexpr uint32_t kExtraSidsFlag = 0x20;
constexpr uint32_t kResourceGroupsFlag = 0x200;

struct Unreadable {};  // thrown and caught in this file

// Four bytes, the lowest first.
uint32_t NumberAt(const uint8_t* i_pBytes) noexcept {
    return i_pBytes[0] | uint32_t{i_pBytes[1]} << 8 | uint32_t{i_pBytes[2]} << 16 | uint32_t{i_pBytes[3]} << 24;
}

// Takes numbers from the front of the bytes. NDR aligns each by its size, counted from the start.
class NdrReader {
public:
    explicit NdrReader(std::span<const uint8_t> i_bytes) noexcept : m_bytes(i_bytes) {}

    size_t Left() const noexcept { return m_bytes.size() - m_nAt; }

    std::span<const uint8_t> Take(uint64_t i_nBytes) {
        if (i_nBytes > Left()) {
            throw Unreadable();
        }
        const auto taken = m_bytes.subspan(m_nAt, static_cast<size_t>(i_nBytes));
        m_nAt += taken.size();
        return taken;
    }
    void End(size_t i_nBytes) {
        if (i_nBytes > Left()) {
            throw Unreadable();
        }
        m_bytes = m_bytes.first(m_nAt + i_nBytes);
    }

    uint8_t Byte() { return Take(1)[0]; }
    uint16_t Short() {
        const auto bytes = Take(2);
        return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
    }
    uint32_t Long() {
        Take((4 - m_nAt % 4) % 4);
        return NumberAt(Take(4).data());
    }
    bool Pointer() { return Long() != 0; }

    // An array's own count must be the one in front of the pointer, and its elements, of at least this size, be there.
    void ArrayOf(uint32_t i_nCount, size_t i_nElementBytes) {
        if (Long() != i_nCount || uint64_t{i_nCount} * i_nElementBytes > Left()) {
            throw Unreadable();
        }
    }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_nAt = 0;
};

// An array somewhere behind the pointer.
struct ArrayPointer {
    uint32_t m_nCount;
    bool m_bThere;

    explicit ArrayPointer(NdrReader& io_reader) : m_nCount(io_reader.Long()), m_bThere(io_reader.Pointer()) {
        if (m_nCount != 0 && !m_bThere) {
            throw Unreadable();
        }
    }
};

constexpr size_t kPairBytes = 8;  // a number or pointer, and attributes

// True when the text is there, somewhere behind.
bool TextPointer(NdrReader& io_reader) {
    io_reader.Take(4);
    return io_reader.Pointer();
}

std::span<const uint8_t> TakeText(NdrReader& io_reader) {
    const uint32_t nRoom = io_reader.Long();
    const uint32_t nFirst = io_reader.Long();
    const uint32_t nLength = io_reader.Long();
    if (nFirst != 0 || nLength > nRoom) {
        throw Unreadable();
    }
    return io_reader.Take(uint64_t{nLength} * 2);
}

// UTF-16 with the lower byte first. A zero in it would end a name for whoever reads on.
std::optional<std::u16string> NameOf(std::span<const uint8_t> i_bytes) {
    std::u16string name;
    for (size_t i = 0; i + 1 < i_bytes.size(); i += 2) {
        name.push_back(static_cast<char16_t>(i_bytes[i] | i_bytes[i + 1] << 8));
    }
    return name.empty() || name.find(u'\0') != std::u16string::npos ? std::nullopt : std::optional(std::move(name));
}

Sid ReadSid(NdrReader& io_reader) {
    const uint32_t nRoom = io_reader.Long();
    const uint8_t nRevision = io_reader.Byte();
    const uint8_t nCount = io_reader.Byte();
    if (nRevision != SID_REVISION || nCount > SID_MAX_SUB_AUTHORITIES || nRoom != nCount) {
        throw Unreadable();
    }
    uint64_t nAuthority = 0;
    for (const uint8_t nByte : io_reader.Take(6)) {
        nAuthority = nAuthority << 8 | nByte;
    }
    Sid sid(nAuthority, {});
    for (uint8_t i = 0; i < nCount; ++i) {
        sid.Append(io_reader.Long());
    }
    return sid;
}

// A domain's SID with one number more; never a cut one.
void AddNumber(Sid& io_sid, uint32_t i_nRelative) {
    if (!io_sid.Append(i_nRelative)) {
        throw Unreadable();
    }
}

// Pairs, each of a number and attributes.
std::span<const uint8_t> TakeRelative(NdrReader& io_reader, const ArrayPointer& i_pointer) {
    if (!i_pointer.m_bThere) {
        return {};
    }
    io_reader.ArrayOf(i_pointer.m_nCount, kPairBytes);
    return io_reader.Take(uint64_t{i_pointer.m_nCount} * kPairBytes);
}

void AddRelative(std::vector<Sid>& io_sids, const Sid& i_domain, std::span<const uint8_t> i_pairs) {
    for (size_t i = 0; i < i_pairs.size(); i += kPairBytes) {
        AddNumber(io_sids.emplace_back(i_domain), NumberAt(i_pairs.data() + i));
    }
}

std::vector<Sid> ReadSids(NdrReader& io_reader, const ArrayPointer& i_pointer) {
    std::vector<Sid> sids;
    if (i_pointer.m_bThere) {
        io_reader.ArrayOf(i_pointer.m_nCount, kPairBytes);
        for (uint32_t i = 0; i < i_pointer.m_nCount; ++i) {
            if (!io_reader.Pointer()) {
                throw Unreadable();
            }
            io_reader.Take(4);
        }
        for (uint32_t i = 0; i < i_pointer.m_nCount; ++i) {
            sids.push_back(ReadSid(io_reader));
        }
    }
    return sids;
}

// The two headers in front of stored data, and the pointer to the record.
void ReadHeaders(NdrReader& io_reader) {
    constexpr uint8_t kVersion = 1;
    constexpr uint8_t kLittleEndian = 0x10;
    constexpr uint16_t kHeaderBytes = 8;
    if (io_reader.Byte() != kVersion || io_reader.Byte() != kLittleEndian || io_reader.Short() != kHeaderBytes) {
        throw Unreadable();
    }
    io_reader.Take(4);
    const uint32_t nBytes = io_reader.Long();
    io_reader.Take(4);
    io_reader.End(nBytes);
    if (!io_reader.Pointer()) {
        throw Unreadable();
    }
}

constexpr size_t kTimeBytes = size_t{6} * 8;

// What a pointer in the record leads to follows behind it, in the order of the pointers.
TokenSids ReadRecord(NdrReader& io_reader) {
    io_reader.Take(kTimeBytes);
    std::array<bool, 6> names{};
    for (bool& bThere : names) {
        bThere = TextPointer(io_reader);
    }
    io_reader.Take(4);  // counts of logons
    const uint32_t nUser = io_reader.Long();
    const uint32_t nPrimaryGroup = io_reader.Long();
    const ArrayPointer groupPointer(io_reader);
    const uint32_t nFlags = io_reader.Long();
    io_reader.Take(16);  // a session key
    const bool bServer = TextPointer(io_reader);
    const bool bDomainName = TextPointer(io_reader);
    const bool bDomain = io_reader.Pointer();
    io_reader.Take(size_t{10} * 4);  // account control, more times and counts, reserve
    const ArrayPointer extraPointer(io_reader);
    const bool bResourceDomain = io_reader.Pointer();
    const ArrayPointer resourcePointer(io_reader);

    for (const bool bThere : names) {
        if (bThere) {
            TakeText(io_reader);
        }
    }
    const std::span<const uint8_t> groups = TakeRelative(io_reader, groupPointer);
    for (const bool bThere : {bServer, bDomainName}) {
        if (bThere) {
            TakeText(io_reader);
        }
    }
    if (!bDomain || (resourcePointer.m_nCount != 0 && !bResourceDomain)) {
        throw Unreadable();
    }
    const Sid domain = ReadSid(io_reader);
    std::vector<Sid> extraSids = ReadSids(io_reader, extraPointer);
    const Sid resourceDomain = bResourceDomain ? ReadSid(io_reader) : Sid();
    std::span<const uint8_t> resourceGroups = TakeRelative(io_reader, resourcePointer);

    if ((nFlags & kExtraSidsFlag) == 0) {
        extraSids.clear();
    }
    if ((nFlags & kResourceGroupsFlag) == 0) {
        resourceGroups = {};
    }
    if (nUser == 0 && extraSids.empty()) {
        throw Unreadable();
    }
    TokenSids sids;
    sids.m_user = nUser != 0 ? domain : extraSids.front();
    if (nUser != 0) {
        AddNumber(sids.m_user, nUser);
    }
    sids.m_groups.reserve(1 + (groups.size() + resourceGroups.size()) / kPairBytes + extraSids.size());
    AddNumber(sids.m_groups.emplace_back(domain), nPrimaryGroup);
    AddRelative(sids.m_groups, domain, groups);
    sids.m_groups.insert(sids.m_groups.end(), extraSids.begin(), extraSids.end());
    AddRelative(sids.m_groups, resourceDomain, resourceGroups);
    sids.RemoveDuplicates();
    return sids;
}

}  // namespace

std::optional<TokenSids> ReadPacLogonInfo(std::span<const uint8_t> i_bytes) {
    try {
        NdrReader reader(i_bytes);
        ReadHeaders(reader);
        return ReadRecord(reader);
    } catch (const Unreadable&) {
        return std::nullopt;
    }
}

std::optional<std::u16string> ReadPacAccountName(std::span<const uint8_t> i_logonInfo) {
    constexpr size_t kBehindFirstName = 5 * 8 + 30 * 4;  // five more texts and the rest of the record
    try {
        NdrReader reader(i_logonInfo);
        ReadHeaders(reader);
        reader.Take(kTimeBytes);
        if (!TextPointer(reader)) {
            return std::nullopt;
        }
        reader.Take(kBehindFirstName);
        return NameOf(TakeText(reader));
    } catch (const Unreadable&) {
        return std::nullopt;
    }
}

std::optional<std::u16string> ReadPacSamName(std::span<const uint8_t> i_names) {
    constexpr uint32_t kSamNameFlag = 2;
    try {
        NdrReader reader(i_names);
        reader.Take(size_t{4} * 2);  // lengths and places of two other names
        if ((reader.Long() & kSamNameFlag) == 0) {
            return std::nullopt;
        }
        const uint16_t nBytes = reader.Short();
        const uint16_t nAt = reader.Short();
        NdrReader name(i_names);
        name.Take(nAt);
        return NameOf(name.Take(nBytes));
    } catch (const Unreadable&) {
        return std::nullopt;
    }
}

}  // namespace morwen
