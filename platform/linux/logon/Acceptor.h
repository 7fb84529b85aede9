// The accepting side of a logon.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/logon/SecurityContext.h"

namespace morwen {

// The one pass that there is: checks the initiator's token and establishes a context; the reply is empty when the
// initiator asks for none. Of the requirements ASC_REQ_INTEGRITY and ASC_REQ_ALLOW_MISSING_BINDINGS count. Throws
// SspiFailure (the text names client, service and keytab as far as they are known), std::bad_alloc.
std::shared_ptr<SecurityContext> AcceptToken(krb5_context i_context, const AcceptorKeys& i_keys,
                                             std::span<const uint8_t> i_token, const LogonTerms& i_terms,
                                             std::vector<uint8_t>& o_reply);

}  // namespace morwen
