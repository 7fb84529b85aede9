// The name of the local account that a Kerberos principal stands for.
#pragma once

#include <krb5/krb5.h>

#include <string>

namespace morwen {

// As krb5_aname_to_localname maps it, but for two kinds of principals that stand for none: one with a zero byte, whose
// name the library would take to end there; and one of another realm whose name alone is in auth_to_local_names, which
// does not say of which realm (KRB5_LNAME_NOTRANS). 0 or the library's code. Throws std::bad_alloc.
krb5_error_code LocalName(krb5_context i_context, krb5_const_principal i_principal, std::string& o_name);

// By what principals are mapped, in words. Throws std::bad_alloc.
std::string WhoseRules(krb5_context i_context);

// Whether the administrator has named just this principal, so that the account is his decision and does not follow from
// the name that a user has found in a directory: by an entry of auth_to_local_names for a principal of the default
// realm; or by a value of the default realm's auth_to_local of the form
//     RULE:[1:$1@$0](NAME@REALM)s/.*/ACCOUNT/     or     RULE:[2:$1/$2@$0](NAME/INSTANCE@REALM)...
// where what is in parentheses is this principal and no pattern (dots as [.] or \.), with nothing but such rules in
// front of it. Throws std::bad_alloc.
bool IsMappedExplicitly(krb5_context i_context, krb5_const_principal i_principal);

}  // namespace morwen
