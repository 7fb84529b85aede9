// The tickets that came with a logon.
#pragma once

#include <string>
#include <utility>

#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/keys/InitiatorTickets.h"

namespace morwen {

// Belongs to the identity of the user who logged on: whoever acts as that user logs on elsewhere with these tickets and
// no others. Any method on any thread.
class DelegatedTickets {
public:
    // The cache's full name goes with it. Throws std::bad_alloc.
    DelegatedTickets(KeptMemoryCache i_cache, std::string i_name)
        : m_cache(std::move(i_cache)), m_tickets(std::move(i_name)) {}

    InitiatorTickets& Tickets() noexcept { return m_tickets; }

private:
    KeptMemoryCache m_cache;
    InitiatorTickets m_tickets;
};

}  // namespace morwen
