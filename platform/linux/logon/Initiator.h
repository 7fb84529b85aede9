// The initiating side of a logon.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/forwarding/LogonTickets.h"
#include "platform/linux/logon/SecurityContext.h"

namespace morwen {

// The first pass: a context and the token for the service. The requirements are ISC_REQ_DELEGATE, ISC_REQ_INTEGRITY and
// ISC_REQ_MUTUAL_AUTH; without the latter the context is established at once. Throws SspiFailure, std::bad_alloc.
std::shared_ptr<SecurityContext> InitiateLogon(krb5_context i_context, LogonTickets& i_tickets,
                                               const std::string& i_targetName, const LogonTerms& i_terms,
                                               std::vector<uint8_t>& o_token);

// The second pass: checks the service's answer and establishes the context. Throws SspiFailure; the context is then
// as it was, so that a better answer is still accepted.
void CheckAnswer(krb5_context i_context, SecurityContext& io_logon, std::span<const uint8_t> i_token);

}  // namespace morwen
