// The check of the privilege attributes that a KDC puts into tickets.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace morwen {

// The logon information of the PAC in a decrypted ticket, as the KDC wrote it; nothing when the ticket has no PAC, or
// one without it. Throws SspiFailure (SEC_E_LOGON_DENIED) for a PAC that cannot be taken apart, is not signed with the
// key that opened the ticket or was made for another user (libkrb5 looks at the signatures too, but keeps the result to
// itself), and for two PACs. Throws std::bad_alloc.
std::optional<std::vector<uint8_t>> CheckPac(krb5_context i_context, const krb5_keyblock* i_pKey,
                                             const krb5_ticket& i_ticket);

}  // namespace morwen
