// The principal that a target name stands for.
#pragma once

#include <string>

#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen {

// "service/host" or "service/host@REALM". Without a realm the host's realm as configured is taken, else none, which
// leaves the choice to the client's KDC and then to the library's fall-back. Host names are taken as they are written:
// an answer of the name service must not decide whom a user logs on to. Throws SspiFailure (SEC_E_TARGET_UNKNOWN).
Krb5Principal ServicePrincipal(krb5_context i_context, const std::string& i_targetName);

}  // namespace morwen
