#include "platform/linux/delegation/LogonEvidence.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

using Length = unsigned;  // as in krb5_data

// The realm, then the rest.
std::vector<krb5_data> PartsOf(const krb5_principal_data& i_name) {
    std::vector<krb5_data> parts{i_name.realm};
    parts.insert(parts.end(), i_name.data, i_name.data + i_name.length);
    return parts;
}

std::unique_ptr<const uint8_t[]> Copy(std::span<const uint8_t> i_ticket, const std::vector<krb5_data>& i_parts) {
    size_t nBytes = i_ticket.size();
    for (const krb5_data& part : i_parts) {
        nBytes += sizeof(Length) + part.length;
    }
    auto pBytes = std::make_unique_for_overwrite<uint8_t[]>(nBytes);
    uint8_t* pAt = std::copy(i_ticket.begin(), i_ticket.end(), pBytes.get());
    for (const krb5_data& part : i_parts) {
        std::memcpy(pAt, &part.length, sizeof(Length));
        const std::span<const uint8_t> bytes = BytesOf(part);
        pAt = std::copy(bytes.begin(), bytes.end(), pAt + sizeof(Length));
    }
    return pBytes;
}

}  // namespace

constinit Harrowlib201::CS_Wrapper LogonEvidence::s_section;

std::shared_ptr<LogonEvidence> LogonEvidence::Of(std::span<const uint8_t> i_ticket, const krb5_enc_tkt_part& i_opened) {
    if ((i_opened.flags & TKT_FLG_FORWARDABLE) == 0) {
        return nullptr;
    }
    return std::make_shared<LogonEvidence>(i_ticket, *i_opened.client, SecondsOf(i_opened.times.endtime));
}

LogonEvidence::LogonEvidence(std::span<const uint8_t> i_ticket, const krb5_principal_data& i_user, int64_t i_nEnd)
    : m_nEnd(i_nEnd),
      m_nNameType(i_user.type),
      m_nNameParts(static_cast<uint32_t>(i_user.length) + 1),
      m_nTicket(static_cast<uint32_t>(i_ticket.size())),
      m_pBytes(Copy(i_ticket, PartsOf(i_user))) {}

std::shared_ptr<ProxyTickets> LogonEvidence::Tickets() {
    {
        const CS_Locker locker(s_section);
        if (m_pTickets != nullptr) {
            return m_pTickets;
        }
    }
    auto pTickets = ProxyTickets::Of(Ticket());
    const CS_Locker locker(s_section);
    if (m_pTickets == nullptr) {
        m_pTickets = std::move(pTickets);
    }
    return m_pTickets;
}

std::shared_ptr<const LogonTickets::ServiceTicket> LogonEvidence::Get(krb5_context i_context,
                                                                      const std::string& i_targetName) {
    std::vector<krb5_data> parts(m_nNameParts);
    const uint8_t* pAt = m_pBytes.get() + m_nTicket;
    for (krb5_data& part : parts) {
        Length nLength = 0;
        std::memcpy(&nLength, pAt, sizeof nLength);
        part = DataOf({pAt + sizeof nLength, nLength});
        pAt += sizeof nLength + nLength;
    }
    const krb5_principal_data user{KV5M_PRINCIPAL, parts.front(), parts.data() + 1,
                                   static_cast<krb5_int32>(parts.size() - 1), m_nNameType};
    return Tickets()->Get(i_context, {Ticket(), &user, m_nEnd}, i_targetName);
}

}  // namespace morwen
