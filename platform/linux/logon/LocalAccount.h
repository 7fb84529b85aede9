// The account of this machine that a Kerberos principal stands for.
#pragma once

#include <krb5/krb5.h>
#include <sys/types.h>

#include <optional>

#include "platform/OsTypes.h"
#include "platform/linux/identity/UnixAccount.h"

namespace morwen {

// Maps the principal to a name (LocalName) and looks the account and its groups up. Nothing when there is no
// account; o_nStatus and the thread's failure text then say which step failed. Throws std::bad_alloc.
std::optional<UnixAccount> LocalAccount(krb5_context i_context, krb5_const_principal i_principal,
                                        SECURITY_STATUS& o_nStatus);

}  // namespace morwen
