// The check of the privilege attributes that a KDC puts into tickets.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/linux/AcceptorKeys.h"

namespace morwen {

// The logon information of the PAC in a decrypted ticket, as the KDC wrote it; nothing when the ticket has no PAC, or
// one without it. Throws SspiFailure (SEC_E_LOGON_DENIED) for a PAC that cannot be taken apart, is not signed with the
// service's key or was made for another user, and for two PACs. Throws std::bad_alloc.
//
// What libkrb5 has verified in the exchange that brought the ticket is not verified once more. Without an exchange
// (null), or a finding in it, everything is.
std::optional<std::vector<uint8_t>> CheckPac(krb5_context i_context, const AcceptorKeys& i_keys,
                                             krb5_auth_context i_exchange, const krb5_ticket& i_ticket);

}  // namespace morwen
