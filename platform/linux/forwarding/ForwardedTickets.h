// Ticket-granting tickets that the KDC has forwarded, used again.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/forwarding/AskedOnce.h"
#include "platform/linux/forwarding/LogonTickets.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen {

// Those of one identity, one for each service, because an address of the service may be in them. A forwarded ticket may
// be handed on any number of times: it is used again for five minutes, or up to a minute before its end, as long as the
// ticket that it was made from is in the cache and the service's own ticket is the same. What is held is encrypted: its
// key is in the service's ticket. Any method on any thread.
class ForwardedTickets {
public:
    ForwardedTickets();
    ~ForwardedTickets();
    ForwardedTickets(const ForwardedTickets&) = delete;
    ForwardedTickets& operator=(const ForwardedTickets&) = delete;

    // Where the identity's tickets are.
    class Source {
    public:
        Source() = default;
        Source(const Source&) = delete;
        Source& operator=(const Source&) = delete;
        virtual ~Source() = default;
        // The cache with the identity's ticket-granting ticket. Throws SspiFailure.
        virtual Krb5CacheOwner OpenCache(krb5_context i_context) = 0;
        // Another number whenever the cache may have changed.
        virtual uint64_t Generation() = 0;
    };

    // For the service that the other ticket is for; null when the identity's cannot be forwarded, which costs no
    // request where its flags say so, and when the KDC gives none. Throws std::bad_alloc.
    std::shared_ptr<const ForwardedTicket> Get(krb5_context i_context, Source& io_source,
                                               const std::string& i_targetName, const krb5_creds& i_serviceTicket);

private:
    struct Finding;  // about one service

    static std::shared_ptr<const Finding> Find(krb5_context i_context, Source& io_source,
                                               const std::string& i_targetName, const krb5_creds& i_serviceTicket,
                                               const Finding* i_pEarlier);

    static constexpr size_t kMostServices = 64;  // more than one identity delegates to
    AskedOnce<Finding, kMostServices> m_findings;
};

}  // namespace morwen
