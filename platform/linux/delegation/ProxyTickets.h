// Tickets for other services that the KDC gives to this one in a user's name.
#pragma once

#include <krb5/krb5.h>

#include <memory>
#include <span>
#include <string>

#include "platform/linux/forwarding/AskedOnce.h"
#include "platform/linux/forwarding/LogonTickets.h"

namespace morwen {

// What a user's ticket for this service has brought, for each other service. Any method on any thread.
class ProxyTickets {
public:
    // The user's ticket as it came, which tells the KDC that the user is here; whose it is, and when it ends.
    struct Evidence {
        std::span<const uint8_t> m_ticket;
        krb5_const_principal m_pUser;
        int64_t m_nEnd;
    };

    // Those of who has come with the very same ticket; of nobody else.
    static std::shared_ptr<ProxyTickets> Of(std::span<const uint8_t> i_ticket);

    // The user's ticket for the other service: from memory, or from the KDC, which decides whether it may be. Throws
    // SspiFailure; SEC_E_NO_CREDENTIALS with a text that names the reason: the KDC does not let this service delegate
    // to the other, the keytab has no account with a ticket, or the user's ticket has expired. Throws std::bad_alloc.
    std::shared_ptr<const LogonTickets::ServiceTicket> Get(krb5_context i_context, const Evidence& i_evidence,
                                                           const std::string& i_targetName);

private:
    struct Finding;

    static std::shared_ptr<const Finding> Ask(krb5_context i_context, const Evidence& i_evidence,
                                              const std::string& i_targetName);

    static constexpr size_t kMostServices = 64;  // more than one user is led to
    AskedOnce<Finding, kMostServices> m_findings;
};

}  // namespace morwen
