// The name of the service that a ticket is for, read where it stands.
#pragma once

#include <krb5/krb5.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace morwen {

// Parts of the ticket's bytes. Nothing of it is protected: it says which key to try, and nothing else.
class TicketService {
public:
    // Nothing when the ticket is not in DER, or its name is longer than those of services are.
    static std::optional<TicketService> Read(std::span<const uint8_t> i_ticket) noexcept;
    // Parts of the principal; nothing when it is longer.
    static std::optional<TicketService> Of(const krb5_principal_data& i_principal) noexcept;

    // As krb5_principal_compare sees it: without the name's type; or as a directory does, for which a name is the same
    // in capitals and small letters. The realm is compared as it is.
    bool Is(const krb5_principal_data& i_principal, bool i_bInAnyCase) const noexcept;
    // Where to look for those that it is in any case, among which there may be others. Throws std::bad_alloc.
    std::string PlaceInAnyCase() const;

private:
    std::span<const uint8_t> m_realm;
    std::array<std::span<const uint8_t>, 8> m_names;
    size_t m_nNames = 0;
};

}  // namespace morwen
