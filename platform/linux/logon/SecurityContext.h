// One logon in progress or done: what a context handle names, and what its maker asks of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/binding/ChannelHash.h"
#include "platform/linux/binding/Mic.h"
#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/identity/TokenIdentity.h"
#include "platform/linux/keys/DelegatedTickets.h"

namespace morwen {

struct LogonTerms {
    uint32_t m_nRequirements = 0;      // ISC_REQ_* or ASC_REQ_*
    std::optional<Channel> m_channel;  // that the logon is for
};

// The side and the times are fixed before a handle exists; the rest changes in later passes, under the section.
struct SecurityContext {
    bool m_bAccepted = false;
    int64_t m_nStart = 0;  // of the service ticket, seconds since 1970, UTC
    int64_t m_nEnd = 0;

    Harrowlib201::CS_Wrapper m_section;
    bool m_bEstablished S_GUARDED_BY(m_section) = false;
    uint32_t m_nAttributes S_GUARDED_BY(m_section) = 0;  // ISC_RET_* or ASC_RET_*

    // The initiating side until the server has answered: what its answer must fit to.
    KeptAuthContext m_exchange S_GUARDED_BY(m_section);

    // For MICs: once established, where the call has asked for integrity.
    std::optional<MicKey> m_mic S_GUARDED_BY(m_section);

    // The accepting side: who has logged on. The identity's account is looked up when it is first needed, and then
    // kept; when there was none, the next one who needs it looks again.
    KeptPrincipal m_client S_GUARDED_BY(m_section);
    std::optional<std::u16string> m_accountName S_GUARDED_BY(m_section);  // as CheckPac has found it
    std::shared_ptr<const TokenIdentity> m_pIdentity S_GUARDED_BY(m_section);
};

}  // namespace morwen
