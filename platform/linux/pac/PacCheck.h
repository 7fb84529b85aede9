// The check of the privilege attributes that a KDC puts into tickets.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morwen {

// What a verified PAC says of the user.
struct PacInformation {
    std::shared_ptr<const std::vector<uint8_t>> m_pLogonInfo;  // as the KDC wrote it; null when it is not there
    // Of the account in the directory; nothing when the PAC says nothing of it, empty when it cannot be read.
    std::optional<std::u16string> m_accountName;
};

// Of the PAC in a decrypted ticket; empty when there is none. The key is the one that opened the ticket. Throws
// SspiFailure (SEC_E_LOGON_DENIED) for a PAC that cannot be taken apart, is not signed with that key or was made for
// another user (libkrb5 looks at the signatures too, but keeps the result to itself), and for two PACs. Throws
// std::bad_alloc.
PacInformation CheckPac(krb5_context i_context, const krb5_keyblock* i_pKey, const krb5_ticket& i_ticket);

}  // namespace morwen
