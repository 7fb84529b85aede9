#include "platform/linux/wire/CredMessage.h"

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
    message.m_nTickets = *nTickets;
    message.m_encryptedPart = *part;
    message.m_nEncryptionType = (type->front() & 0x80) != 0 ? -1 : 0;
    for (const uint8_t nByte : *type) {
        message.m_nEncryptionType = static_cast<int32_t>(static_cast<uint32_t>(message.m_nEncryptionType) << 8 | nByte);
    }
    return message;
}

bool CredMessage::IsDescribedBy(std::span<const uint8_t> i_part) const noexcept {
    const auto content = TakeDer(i_part);  // some ciphers pad what follows
    auto fields = content && content->m_nTag == kPartTag ? OnlyDer(content->m_content, kDerSequence) : std::nullopt;
    const auto infos = fields ? TakeDerField(*fields, 0, kDerSequence) : std::nullopt;
    return infos && CountOf(*infos, kDerSequence, NamesClientAndServer) == m_nTickets;
}

}  // namespace morwen
