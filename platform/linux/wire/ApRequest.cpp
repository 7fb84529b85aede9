#include "platform/linux/wire/ApRequest.h"

#include <array>

#include "der/Der.h"

namespace morwen {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t kTicketTag = 0x61;
constexpr uint8_t kAuthenticatorTag = 0x62;
constexpr uint8_t kTicketPartTag = 0x63;
constexpr uint8_t kRequestTag = 0x6E;

// A number of 32 bits, which some senders write with their sign and others with a zero in front.
std::optional<uint32_t> TakeNumber(Bytes& io_fields, uint8_t i_nField) noexcept {
    const auto bytes = TakeDerField(io_fields, i_nField, kDerInteger);
    if (!bytes || bytes->empty() || bytes->size() > sizeof(uint32_t) + 1) {
        return std::nullopt;
    }
    uint32_t nNumber = (bytes->front() & 0x80) != 0 ? ~0U : 0U;
    for (const uint8_t nByte : *bytes) {
        nNumber = nNumber << 8 | nByte;
    }
    return nNumber;
}

std::optional<EncryptedPart> TakeEncrypted(Bytes& io_fields, uint8_t i_nField) noexcept {
    auto fields = TakeDerField(io_fields, i_nField, kDerSequence);
    const auto type = fields ? TakeNumber(*fields, 0) : std::nullopt;
    if (!type) {
        return std::nullopt;
    }
    const uint32_t nVersion = TakeNumber(*fields, 1).value_or(0);
    const auto cipher = TakeDerField(*fields, 2, kDerBytes);
    return cipher ? std::optional(EncryptedPart{static_cast<int32_t>(*type), nVersion, *cipher}) : std::nullopt;
}

// The fields of the structure with this tag at the front.
std::optional<Bytes> FieldsOf(Bytes i_bytes, uint8_t i_nTag) noexcept {
    const auto content = TakeDer(i_bytes);
    return content && content->m_nTag == i_nTag ? OnlyDer(content->m_content, kDerSequence) : std::nullopt;
}

// The content of the field, empty when it is missing. Nothing unless all fields are in order: libkrb5 passes over what
// it does not expect, so that another one could hide there.
std::optional<Bytes> FindField(Bytes i_fields, uint8_t i_nField) noexcept {
    Bytes found;
    for (int nLast = -1; !i_fields.empty();) {
        const auto field = TakeDer(i_fields);
        if (!field || field->m_nTag < kDerField || field->m_nTag - kDerField <= nLast) {
            return std::nullopt;
        }
        nLast = field->m_nTag - kDerField;
        found = nLast == i_nField ? field->m_content : found;
    }
    return found;
}

// What elements of the type have in them: further ones, or nothing. Nothing else is known that a library takes apart
// without being told to.
std::optional<Bytes> ElementsIn(uint32_t i_nType, Bytes i_content) noexcept {
    constexpr uint32_t kIfRelevant = 1;
    constexpr uint32_t kIssuedByKdc = 4;
    constexpr uint32_t kAndOr = 5;
    constexpr uint32_t kMandatoryForKdc = 8;
    constexpr uint32_t kCammac = 96;
    const auto inField = [i_content](uint8_t i_nField) {
        const auto fields = OnlyDer(i_content, kDerSequence);
        return fields ? FindField(*fields, i_nField) : std::nullopt;
    };
    switch (i_nType) {
        case kIfRelevant:
        case kMandatoryForKdc:
            return i_content;
        case kIssuedByKdc:
            return inField(3);
        case kAndOr:
            return inField(1);
        case kCammac:
            return inField(0);
        default:
            return Bytes();
    }
}

}  // namespace

std::optional<ApRequest> ApRequest::Read(std::span<const uint8_t> i_message) noexcept {
    auto fields = FieldsOf(i_message, kRequestTag);
    if (!fields || !TakeNumber(*fields, 0) || !TakeNumber(*fields, 1) || !TakeDerField(*fields, 2, kDerBits)) {
        return std::nullopt;
    }
    const auto ticket = TakeDer(*fields);
    const auto authenticator = TakeEncrypted(*fields, 4);
    if (!ticket || ticket->m_nTag != kDerField + 3 || !authenticator) {
        return std::nullopt;
    }
    auto ticketFields = FieldsOf(ticket->m_content, kTicketTag);
    const auto skip = [&ticketFields](uint8_t i_nField) {
        const auto field = TakeDer(*ticketFields);
        return field && field->m_nTag == kDerField + i_nField;
    };
    if (!ticketFields || !skip(0) || !skip(1) || !skip(2)) {
        return std::nullopt;
    }
    const auto ticketPart = TakeEncrypted(*ticketFields, 3);
    if (!ticketPart) {
        return std::nullopt;
    }
    return ApRequest{ticket->m_content, *ticketPart, *authenticator};
}

std::optional<TicketPart> TicketPart::Read(std::span<const uint8_t> i_part) noexcept {
    constexpr uint8_t kAuthorizationData = 10;
    auto fields = FieldsOf(i_part, kTicketPartTag);
    const auto data = fields ? FindField(*fields, kAuthorizationData) : std::nullopt;
    if (!data || !TakeDerField(*fields, 0, kDerBits)) {
        return std::nullopt;
    }
    auto key = TakeDerField(*fields, 1, kDerSequence);
    const auto type = key ? TakeNumber(*key, 0) : std::nullopt;
    const auto bytes = type ? TakeDerField(*key, 1, kDerBytes) : std::nullopt;
    return bytes ? std::optional(TicketPart{static_cast<int32_t>(*type), *bytes, *data}) : std::nullopt;
}

std::optional<std::span<const uint8_t>> AuthorizationDataOf(std::span<const uint8_t> i_authenticator) noexcept {
    constexpr uint8_t kAuthorizationData = 8;
    const auto fields = FieldsOf(i_authenticator, kAuthenticatorTag);
    return fields ? FindField(*fields, kAuthorizationData) : std::nullopt;
}

bool IsBoundedAuthorizationData(std::span<const uint8_t> i_data) noexcept {
    constexpr size_t kMostDeep = 6;
    constexpr size_t kMostElements = 128;
    std::array<Bytes, kMostDeep> aOpen;  // what is left of each list, from the outermost on
    size_t nDeep = 0;
    size_t nElements = 0;
    Bytes list = i_data;
    while (true) {
        if (!list.empty()) {
            const auto elements = OnlyDer(list, kDerSequence);
            if (!elements || nDeep == kMostDeep) {
                return false;
            }
            aOpen[nDeep++] = *elements;
        }
        while (nDeep != 0 && aOpen[nDeep - 1].empty()) {
            --nDeep;
        }
        if (nDeep == 0) {
            return true;
        }
        const auto element = TakeDer(aOpen[nDeep - 1]);
        if (!element || element->m_nTag != kDerSequence || ++nElements > kMostElements) {
            return false;
        }
        Bytes fields = element->m_content;
        const auto type = TakeNumber(fields, 0);
        const auto content = type ? TakeDerField(fields, 1, kDerBytes) : std::nullopt;
        const auto within = content ? ElementsIn(*type, *content) : std::nullopt;
        if (!within || !fields.empty()) {
            return false;
        }
        list = *within;
    }
}

}  // namespace morwen
