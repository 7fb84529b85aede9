// The ticket with which a user has logged on here, kept so that the KDC can be shown it.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/delegation/ProxyTickets.h"
#include "platform/linux/forwarding/LogonTickets.h"

namespace morwen {

// Belongs to the identity of one logon: a thread that acts as this user logs on elsewhere in the user's name with it,
// and with the service's own ticket-granting ticket, where the KDC allows that (constrained delegation). It is as long
// as the ticket and some 300 bytes; the ticket is encrypted, and no secret. Any method on any thread.
class LogonEvidence : public LogonTickets {
public:
    // Null where it could not serve: a KDC takes none that may not be forwarded. The ticket as it came, and what was in
    // it. Throws std::bad_alloc.
    static std::shared_ptr<LogonEvidence> Of(krb5_context i_context, std::span<const uint8_t> i_ticket,
                                             const krb5_enc_tkt_part& i_opened);

    LogonEvidence(std::span<const uint8_t> i_ticket, KeptPrincipal i_user, int64_t i_nEnd);

    // As ProxyTickets::Get, as long as the ticket lasts.
    std::shared_ptr<const ServiceTicket> Get(krb5_context i_context, const std::string& i_targetName) override;
    // None: what the KDC gives in a user's name is for one service, which can ask for itself.
    std::shared_ptr<const ForwardedTicket> Forwarded(krb5_context, const std::string&, const ServiceTicket&) override {
        return nullptr;
    }

private:
    std::shared_ptr<ProxyTickets> Tickets();

    const std::vector<uint8_t> m_ticket;
    const KeptPrincipal m_user;
    const int64_t m_nEnd;
    Harrowlib201::CS_Wrapper m_section;
    std::shared_ptr<ProxyTickets> m_pTickets S_GUARDED_BY(m_section);  // null until they are needed
};

}  // namespace morwen
