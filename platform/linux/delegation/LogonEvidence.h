// The ticket with which a user has logged on here, kept so that the KDC can be shown it.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/delegation/ProxyTickets.h"
#include "platform/linux/forwarding/LogonTickets.h"

namespace morwen {

// Belongs to the identity of one logon: a thread that acts as this user logs on elsewhere in the user's name with it,
// and with the service's own ticket-granting ticket, where the KDC allows that (constrained delegation). It is as long
// as the ticket and the user's name, and some 100 bytes, because there is one for each context that is kept; the ticket
// is encrypted, and no secret. Any method on any thread.
class LogonEvidence : public LogonTickets {
public:
    // Null where it could not serve: a KDC takes none that may not be forwarded. The ticket as it came, and what was in
    // it. Throws std::bad_alloc.
    static std::shared_ptr<LogonEvidence> Of(std::span<const uint8_t> i_ticket, const krb5_enc_tkt_part& i_opened);

    // Of a ticket of less than 4 GiB. Copies both; throws std::bad_alloc.
    LogonEvidence(std::span<const uint8_t> i_ticket, const krb5_principal_data& i_user, int64_t i_nEnd);

    // As ProxyTickets::Get, as long as the ticket lasts.
    std::shared_ptr<const ServiceTicket> Get(krb5_context i_context, const std::string& i_targetName) override;
    // None: what the KDC gives in a user's name is for one service, which can ask for itself.
    std::shared_ptr<const ForwardedTicket> Forwarded(krb5_context, const std::string&, const ServiceTicket&) override {
        return nullptr;
    }

private:
    std::shared_ptr<ProxyTickets> Tickets();
    std::span<const uint8_t> Ticket() const noexcept { return {m_pBytes.get(), m_nTicket}; }

    const int64_t m_nEnd;
    const krb5_int32 m_nNameType;
    const uint32_t m_nNameParts;  // the realm is the first
    const uint32_t m_nTicket;
    const std::unique_ptr<const uint8_t[]> m_pBytes;  // the ticket, then each part of the name behind its length
    static Harrowlib201::CS_Wrapper s_section;        // for all of them, and held to copy a pointer
    std::shared_ptr<ProxyTickets> m_pTickets S_GUARDED_BY(s_section);  // null until they are needed
};

}  // namespace morwen
