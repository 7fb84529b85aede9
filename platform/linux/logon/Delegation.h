// Tickets that an initiator has handed over, so that this service can act for the user.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>

#include "platform/linux/keys/DelegatedTickets.h"

namespace morwen {

// The ticket-granting ticket of a received KRB-CRED, held in memory; null when it brings none. All in it must be the
// client's own. Throws SspiFailure.
std::shared_ptr<DelegatedTickets> ReceivedTickets(krb5_context i_context, krb5_auth_context io_exchange,
                                                  std::span<const uint8_t> i_message, krb5_const_principal i_client);

}  // namespace morwen
