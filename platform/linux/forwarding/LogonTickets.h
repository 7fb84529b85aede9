// With what a logon elsewhere is started.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/contexts/Krb5Kept.h"

namespace morwen {

// A ticket-granting ticket that the KDC has forwarded, as a message (KRB-CRED) for a service: encrypted with the
// session key of the ticket for that service. It is the same for every logon with that ticket.
using ForwardedTicket = std::vector<uint8_t>;

// The tickets of one identity. Any method on any thread.
class LogonTickets {
public:
    // Never changed, and read by many threads at once.
    struct ServiceTicket {
        KeptCredentials m_credentials;
        int64_t m_nStart = 0;
        int64_t m_nEnd = 0;

        // Whether the realm trusts the service with delegated tickets.
        bool MayDelegate() const noexcept { return (m_credentials.get()->ticket_flags & TKT_FLG_OK_AS_DELEGATE) != 0; }
    };

    LogonTickets() = default;
    LogonTickets(const LogonTickets&) = delete;
    LogonTickets& operator=(const LogonTickets&) = delete;
    virtual ~LogonTickets() = default;

    // A ticket for the service that is good now, from memory or from the KDC. Throws SspiFailure, std::bad_alloc.
    virtual std::shared_ptr<const ServiceTicket> Get(krb5_context i_context, const std::string& i_targetName) = 0;

    // The identity's ticket-granting ticket to be handed to the service, which has the other ticket. Null when there is
    // none: delegation is asked for, never required. Throws std::bad_alloc.
    virtual std::shared_ptr<const ForwardedTicket> Forwarded(krb5_context i_context, const std::string& i_targetName,
                                                             const ServiceTicket& i_ticket) = 0;
};

}  // namespace morwen
