// The name of the local account that a Kerberos principal stands for.
#pragma once

#include <krb5/krb5.h>

#include <string>

namespace morwen {

// As krb5_aname_to_localname maps it, but for a principal with a zero byte, which stands for none: the library would
// take it for the name that ends there. 0 or the library's code. Throws std::bad_alloc.
krb5_error_code LocalName(krb5_context i_context, krb5_const_principal i_principal, std::string& o_name);

}  // namespace morwen
