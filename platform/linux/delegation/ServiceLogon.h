// The service's own ticket-granting ticket.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/keys/TicketService.h"

namespace morwen {

// It serves to ask a KDC for tickets in a user's name, and is in no cache that a logon is started from. Never changed.
struct ServiceLogon {
    KeptMemoryCache m_cache;
    KeptPrincipal m_account;  // under whose name the KDC has given it
    std::string m_keytab;     // that the account's key is in
    int64_t m_nStart = 0;     // seconds since 1970
    int64_t m_nEnd = 0;

    // Of the account behind the service, which the keytab names: a directory gives no ticket-granting ticket to a
    // service's name, so whose names get one is found out once and remembered. A client keytab is asked in place of the
    // service's where there is one (KRB5_CLIENT_KTNAME, default_client_keytab_name), as by other programs. Held until
    // the keytab changes; half way to its end one thread asks for the next one, under no lock, so that what is got with
    // it lasts.
    //
    // Throws SspiFailure: SEC_E_NO_CREDENTIALS when there is no keytab, or no name in it that gets a ticket, with
    // libkrb5's code for the latter; std::bad_alloc.
    static std::shared_ptr<const ServiceLogon> Get(krb5_context i_context, const TicketService& i_service);

    // Lets go of all that are held. With a service's name: of that one, which the KDC has not accepted.
    static void ReleaseHeld() noexcept;
    static void Forget(krb5_context i_context, const TicketService& i_service);  // throws as Get does
};

}  // namespace morwen
