// Services that no KDC knows, with keys and tickets that are as good as a KDC's.
#pragma once

#include <krb5/krb5.h>

#include <cstddef>
#include <string>

namespace morwen::bench {

// Adds a new key of the encryption type to the realm's keytab, and to the user's cache a ticket for the service with a
// session key of the same type: so each is measured without asking the KDC to change its mind. With groups the ticket
// carries a PAC with the logon information of a directory user in so many groups, signed with the service's key.
// The flags are the ticket's, whose length in bytes is given back. Throws std::runtime_error.
size_t ForgeService(const std::string& i_service, krb5_enctype i_nEnctype, uint32_t i_nGroups,
                    krb5_flags i_nFlags = TKT_FLG_PRE_AUTH);

}  // namespace morwen::bench
