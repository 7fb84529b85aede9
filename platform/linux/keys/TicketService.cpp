// The name of the service that a ticket is for, read where it stands.
#include "platform/linux/keys/TicketService.h"

#include <algorithm>
#include <iterator>

#include "der/Der.h"
#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

namespace {

constexpr uint8_t kTicketTag = 0x61;
constexpr uint8_t kTextTag = 0x1B;

using Bytes = std::span<const uint8_t>;

bool AreSame(Bytes i_left, const krb5_data& i_right) noexcept {
    const Bytes right = BytesOf(i_right);
    return std::equal(i_left.begin(), i_left.end(), right.begin(), right.end());
}

uint8_t Lower(uint8_t i_nCharacter) noexcept {
    return i_nCharacter >= 'A' && i_nCharacter <= 'Z' ? static_cast<uint8_t>(i_nCharacter + ('a' - 'A')) : i_nCharacter;
}

bool AreSameInAnyCase(Bytes i_left, const krb5_data& i_right) noexcept {
    const Bytes right = BytesOf(i_right);
    return std::equal(i_left.begin(), i_left.end(), right.begin(), right.end(),
                      [](uint8_t i_nLeft, uint8_t i_nRight) { return Lower(i_nLeft) == Lower(i_nRight); });
}

}  // namespace

std::optional<TicketService> TicketService::Read(std::span<const uint8_t> i_ticket) noexcept {
    const auto content = OnlyDer(i_ticket, kTicketTag);
    auto fields = content ? OnlyDer(*content, kDerSequence) : std::nullopt;
    if (!fields || !TakeDerField(*fields, 0, kDerInteger)) {
        return std::nullopt;
    }
    const auto realm = TakeDerField(*fields, 1, kTextTag);
    auto name = realm ? TakeDerField(*fields, 2, kDerSequence) : std::nullopt;
    auto texts = name && TakeDerField(*name, 0, kDerInteger) ? TakeDerField(*name, 1, kDerSequence) : std::nullopt;
    if (!texts) {
        return std::nullopt;
    }
    TicketService service;
    service.m_realm = *realm;
    while (!texts->empty()) {
        const auto text = TakeDer(*texts);
        if (!text || text->m_nTag != kTextTag || service.m_nNames == service.m_names.size()) {
            return std::nullopt;
        }
        service.m_names[service.m_nNames++] = text->m_content;
    }
    return service;
}

std::optional<TicketService> TicketService::Of(const krb5_principal_data& i_principal) noexcept {
    const std::span<const krb5_data> names(i_principal.data, static_cast<size_t>(i_principal.length));
    TicketService service;
    if (names.size() > service.m_names.size()) {
        return std::nullopt;
    }
    service.m_realm = BytesOf(i_principal.realm);
    service.m_nNames = names.size();
    std::transform(names.begin(), names.end(), service.m_names.begin(),
                   [](const krb5_data& i_name) { return BytesOf(i_name); });
    return service;
}

std::string TicketService::PlaceInAnyCase() const {
    std::string place;
    for (const Bytes name : std::span(m_names).first(m_nNames)) {
        std::transform(name.begin(), name.end(), std::back_inserter(place), Lower);
        place += '/';
    }
    return place.append(m_realm.begin(), m_realm.end());
}

bool TicketService::Is(const krb5_principal_data& i_principal, bool i_bInAnyCase) const noexcept {
    const std::span<const krb5_data> names(i_principal.data, static_cast<size_t>(i_principal.length));
    return AreSame(m_realm, i_principal.realm) && std::equal(m_names.begin(), m_names.begin() + m_nNames, names.begin(),
                                                             names.end(), i_bInAnyCase ? AreSameInAnyCase : AreSame);
}

}  // namespace morwen
