// Tickets that an initiator hands to a service, so that it can act for the user.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/keys/DelegatedTickets.h"

namespace morwen {

// A KRB-CRED with a forwarded ticket-granting ticket, encrypted with the session key of the exchange, which is that of
// the service's ticket. Empty when there is no room for it in a token. Throws std::bad_alloc.
std::vector<uint8_t> DelegationMessage(krb5_context i_context, krb5_auth_context io_exchange,
                                       const krb5_creds& i_serviceTicket, const krb5_creds& i_forwarded);

// The ticket-granting ticket of a received KRB-CRED, held in memory; null when it brings none. All in it must be the
// client's own. Throws SspiFailure.
std::shared_ptr<DelegatedTickets> ReceivedTickets(krb5_context i_context, krb5_auth_context io_exchange,
                                                  std::span<const uint8_t> i_message, krb5_const_principal i_client);

}  // namespace morwen
