#include "platform/linux/delegation/LogonEvidence.h"

#include <new>
#include <utility>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

std::shared_ptr<LogonEvidence> LogonEvidence::Of(krb5_context i_context, std::span<const uint8_t> i_ticket,
                                                 const krb5_enc_tkt_part& i_opened) {
    if ((i_opened.flags & TKT_FLG_FORWARDABLE) == 0) {
        return nullptr;
    }
    krb5_principal user = nullptr;
    if (krb5_copy_principal(i_context, i_opened.client, &user) != 0) {
        throw std::bad_alloc();
    }
    return std::make_shared<LogonEvidence>(i_ticket, KeptPrincipal(user), SecondsOf(i_opened.times.endtime));
}

LogonEvidence::LogonEvidence(std::span<const uint8_t> i_ticket, KeptPrincipal i_user, int64_t i_nEnd)
    : m_ticket(i_ticket.begin(), i_ticket.end()), m_user(std::move(i_user)), m_nEnd(i_nEnd) {}

std::shared_ptr<ProxyTickets> LogonEvidence::Tickets() {
    const Harrowlib201::CS_Locker locker(m_section);
    if (m_pTickets == nullptr) {
        m_pTickets = ProxyTickets::Of(m_ticket);
    }
    return m_pTickets;
}

std::shared_ptr<const LogonTickets::ServiceTicket> LogonEvidence::Get(krb5_context i_context,
                                                                      const std::string& i_targetName) {
    return Tickets()->Get(i_context, {m_ticket, m_user.get(), m_nEnd}, i_targetName);
}

}  // namespace morwen
