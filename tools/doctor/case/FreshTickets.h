// Tickets for services, asked from the KDC, not taken from a cache.
#pragma once

#include <string>

#include "tools/doctor/case/Case.h"

namespace morwen::doctor {

// A cache in memory with nothing but a ticket-granting ticket: the user's cache may hold older tickets for a service,
// and must not fill with those of the checks.
class FreshTickets {
public:
    explicit FreshTickets(Case& i_case);

    // Each returns libkrb5's code.
    krb5_error_code TakeFromDefaultCache();
    // With the keytab's own key of that principal.
    krb5_error_code TakeWithKey(krb5_keytab i_keytab, krb5_principal i_principal);
    krb5_error_code Get(krb5_principal i_service, Krb5Credentials& o_ticket);

    krb5_principal Client() const noexcept { return m_client.get(); }

private:
    krb5_error_code Begin(krb5_creds* i_pTicket);

    krb5_context m_context;
    Krb5Principal m_client;
    Krb5MemoryCache m_cache;
};

// The ticket-granting ticket of the principal's own realm. The caller frees the contents when this returns 0.
krb5_error_code OwnTicket(krb5_context i_context, krb5_ccache i_cache, krb5_principal i_client, krb5_creds& o_ticket);

}  // namespace morwen::doctor
