// The account of this machine that a Kerberos principal stands for.
#pragma once

#include <krb5/krb5.h>
#include <sys/types.h>

#include <optional>
#include <string>

#include "platform/OsTypes.h"
#include "platform/linux/identity/UnixAccount.h"

namespace morwen {

// Maps the principal to a name (LocalName) and looks the account and its groups up. Nothing when there is no
// account; o_nStatus and the thread's failure text then say which step failed. Throws std::bad_alloc.
//
// The account name is what the KDC has signed of the user: nothing when the ticket says nothing, empty when it cannot
// be read. A principal's name is one that a directory has let a user ask by, which can be that of a machine without its
// $, or one that the user was given beside his own. So unless the administrator has mapped the principal explicitly, it
// stands for a local account only if it has one part, and the account's name is just that; case is told apart as
// directories do it, which is not at all, of ASCII letters here. A ticket that says nothing is then taken for one of a
// realm without a directory, unless others of this realm have brought a name (NoteNamingRealm).
std::optional<UnixAccount> LocalAccount(krb5_context i_context, krb5_const_principal i_principal,
                                        const std::optional<std::u16string>& i_accountName, SECURITY_STATUS& o_nStatus);

// Remembers, for as long as the process lives, that tickets of the principal's realm name the account, so that one that
// does not is none to go by. For up to 64 realms. Throws std::bad_alloc.
void NoteNamingRealm(const krb5_principal_data& i_principal);

}  // namespace morwen
