// The account of this machine that a Kerberos principal stands for.
#pragma once

#include <krb5/krb5.h>
#include <sys/types.h>

#include <memory>
#include <span>

#include "platform/linux/TokenIdentity.h"

namespace morwen {

// Maps the principal with krb5_aname_to_localname and looks the account and its groups up. The user is S-1-22-1-uid,
// the groups S-1-22-2-gid, the primary group first, none twice. Null when there is no account; o_nStatus and the
// thread's failure text then say which step failed. Throws std::bad_alloc.
std::shared_ptr<TokenIdentity> LocalAccountIdentity(krb5_context i_context, krb5_const_principal i_principal,
                                                    SECURITY_STATUS& o_nStatus);

// An account and its groups (the primary one first; without one no thread can act as it), also as security identifiers,
// in the order given and none twice. Throws std::bad_alloc.
std::shared_ptr<TokenIdentity> UnixIdentity(uid_t i_nUser, std::span<const gid_t> i_groups);

}  // namespace morwen
