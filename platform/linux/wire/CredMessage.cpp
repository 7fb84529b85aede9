#include "platform/linux/wire/CredMessage.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "der/Der.h"

namespace morwen {

namespace {

constexpr uint8_t kTicketTag = 0x61;
constexpr uint8_t kMessageTag = 0x76;
constexpr uint8_t kPartTag = 0x7D;

// How many elements there are, all of this tag and pleasing the check.
template <class Check>
std::optional<size_t> CountOf(std::span<const uint8_t> i_bytes, uint8_t i_nTag, Check i_check) noexcept {
    size_t nCount = 0;
    for (; !i_bytes.empty(); ++nCount) {
        const auto element = TakeDer(i_bytes);
        if (!element || element->m_nTag != i_nTag || !i_check(element->m_content)) {
            return std::nullopt;
        }
    }
    return nCount;
}

// Fields that libkrb5 does not expect make it pass over all that follow, so they must be in order, and no others.
bool NamesClientAndServer(std::span<const uint8_t> i_info) noexcept {
    constexpr uint8_t kFields = 11;
    constexpr uint32_t kNeeded = 1U << 1 | 1U << 2 | 1U << 8 | 1U << 9;  // realm and name, of the client and the server
    uint32_t nFields = 0;
    for (uint8_t nNext = 0; !i_info.empty();) {
        const auto field = TakeDer(i_info);
        if (!field || field->m_nTag < kDerField + nNext || field->m_nTag >= kDerField + kFields) {
            return false;
        }
        nNext = static_cast<uint8_t>(field->m_nTag - kDerField + 1);
        nFields |= 1U << (nNext - 1);
    }
    return (nFields & kNeeded) == kNeeded;
}

// Writes from the last element to the first: what is in one is there before its length, in one block of memory.
class BackwardDer {
public:
    explicit BackwardDer(size_t i_nRoom) : m_bytes(i_nRoom), m_nAt(i_nRoom) {}

    size_t Left() const noexcept { return m_nAt; }
    void Put(std::span<const uint8_t> i_bytes) noexcept {
        m_nAt -= i_bytes.size();
        std::copy(i_bytes.begin(), i_bytes.end(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nAt));
    }
    // Around what stands before that place.
    void Wrap(uint8_t i_nTag, size_t i_nEnd) noexcept {
        const size_t nLength = i_nEnd - m_nAt;
        size_t nRest = nLength;
        uint8_t nBytes = 0;
        for (; nLength >= 0x80 && nRest != 0; nRest >>= 8U, ++nBytes) {
            PutByte(static_cast<uint8_t>(nRest));
        }
        PutByte(static_cast<uint8_t>(nLength < 0x80 ? nLength : 0x80U | nBytes));
        PutByte(i_nTag);
    }
    void PutByte(uint8_t i_nByte) noexcept { m_bytes[--m_nAt] = i_nByte; }
    std::vector<uint8_t> Take() {
        // So that nothing of it stays behind its end.
        std::rotate(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nAt), m_bytes.end());
        m_bytes.resize(m_bytes.size() - m_nAt);
        return std::move(m_bytes);
    }

private:
    std::vector<uint8_t> m_bytes;
    size_t m_nAt;
};

}  // namespace

std::optional<CredMessage> CredMessage::Read(std::span<const uint8_t> i_message) noexcept {
    const auto content = OnlyDer(i_message, kMessageTag);
    auto fields = content ? OnlyDer(*content, kDerSequence) : std::nullopt;
    if (!fields || !TakeDerField(*fields, 0, kDerInteger) || !TakeDerField(*fields, 1, kDerInteger)) {
        return std::nullopt;
    }
    const auto tickets = TakeDerField(*fields, 2, kDerSequence);
    const auto nTickets = tickets ? CountOf(*tickets, kTicketTag, [](auto) { return true; }) : std::nullopt;
    auto encrypted = TakeDerField(*fields, 3, kDerSequence);
    const auto type = encrypted ? TakeDerField(*encrypted, 0, kDerInteger) : std::nullopt;
    if (!nTickets || !type || type->empty() || type->size() > sizeof m_nEncryptionType) {
        return std::nullopt;
    }
    static_cast<void>(TakeDerField(*encrypted, 1, kDerInteger));  // the key's version, which may be missing
    constexpr size_t kMostPartBytes = 4096;
    const auto part = TakeDerField(*encrypted, 2, kDerBytes);
    if (!part || part->size() > kMostPartBytes) {
        return std::nullopt;
    }
    CredMessage message;
    message.m_tickets = *tickets;
    message.m_nTickets = *nTickets;
    message.m_encryptedPart = *part;
    message.m_nEncryptionType = (type->front() & 0x80) != 0 ? -1 : 0;
    for (const uint8_t nByte : *type) {
        message.m_nEncryptionType = static_cast<int32_t>(static_cast<uint32_t>(message.m_nEncryptionType) << 8 | nByte);
    }
    return message;
}

std::vector<uint8_t> CredMessage::WithPart(std::span<const uint8_t> i_part) const {
    constexpr size_t kMostHeads = 64;
    constexpr uint8_t kHead[] = {kDerField,     3, kDerInteger, 1, 5,
                                 kDerField + 1, 3, kDerInteger, 1, 22};  // version, kind
    constexpr uint8_t kNoCipher[] = {kDerField, 3, kDerInteger, 1, 0};
    BackwardDer writer(kMostHeads + m_tickets.size() + i_part.size());
    const size_t nEnd = writer.Left();
    writer.Put(i_part);
    writer.Wrap(kDerBytes, nEnd);
    writer.Wrap(kDerField + 2, nEnd);
    writer.Put(kNoCipher);
    writer.Wrap(kDerSequence, nEnd);
    writer.Wrap(kDerField + 3, nEnd);
    const size_t nTicketsEnd = writer.Left();
    writer.Put(m_tickets);
    writer.Wrap(kDerSequence, nTicketsEnd);
    writer.Wrap(kDerField + 2, nTicketsEnd);
    writer.Put(kHead);
    writer.Wrap(kDerSequence, nEnd);
    writer.Wrap(kMessageTag, nEnd);
    return writer.Take();
}

bool CredMessage::IsDescribedBy(std::span<const uint8_t> i_part) const noexcept {
    const auto content = TakeDer(i_part);  // some ciphers pad what follows
    auto fields = content && content->m_nTag == kPartTag ? OnlyDer(content->m_content, kDerSequence) : std::nullopt;
    const auto infos = fields ? TakeDerField(*fields, 0, kDerSequence) : std::nullopt;
    return infos && CountOf(*infos, kDerSequence, NamesClientAndServer) == m_nTickets;
}

}  // namespace morwen
