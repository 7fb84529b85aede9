// The look at a token before libkrb5 takes it apart.
#pragma once

#include <krb5/krb5.h>

#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/wire/ApRequest.h"

namespace morwen {

// Requests up to this size may go to libkrb5 unseen: what can be nested in them takes it a few hundred KiB and some
// fifty microseconds.
inline constexpr size_t kMostUnseenBytes = 4096;

// The one key of the service that the ticket can be encrypted with; null when it may be one of several, or there is
// none.
const krb5_keyblock* OnlyKeyFor(const AcceptorKeys::Service& i_service, const EncryptedPart& i_ticket);

// Finds the key of the service that opens the request's ticket: of the version that the ticket names, or of any if it
// names none, but no more of them than a stranger's token is worth. Gives 0 and the key, which belongs to the keys; or
// the code of the last failure.
//
// Throws SspiFailure (SEC_E_INVALID_TOKEN) when ticket or authenticator bring authorization data that is not bounded,
// and std::bad_alloc.
krb5_error_code OpenTicket(krb5_context i_context, const AcceptorKeys::Service& i_service, const ApRequest& i_request,
                           const krb5_keyblock*& o_pKey);

}  // namespace morwen
