// The check of the privilege attributes that a KDC puts into tickets.
#pragma once

#include <krb5/krb5.h>

#include "platform/linux/AcceptorKeys.h"

namespace morwen {

// Throws SspiFailure (SEC_E_LOGON_DENIED) when the decrypted ticket carries a PAC that cannot be read, is not signed
// with the service's key or was made for another user: libkrb5 looks at the signatures too, but keeps the result to
// itself. A ticket without a PAC passes.
void CheckPac(krb5_context i_context, const AcceptorKeys& i_keys, const krb5_ticket& i_ticket);

}  // namespace morwen
