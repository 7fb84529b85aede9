// Who a token stands for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/identity/UnixAccount.h"
#include "platform/linux/wire/TokenSids.h"

namespace morwen {

class DelegatedTickets;
class LogonEvidence;

// Never changed once a token exists.
struct TokenIdentity {
    // What the user's directory says, from a PAC that was verified: made into SIDs when somebody asks, because those
    // take several times the memory and a context lives for hours. Shared by logons with the same ticket. Null where
    // the account says who it is.
    std::shared_ptr<const std::vector<uint8_t>> m_pPacLogonInfo;
    // Whom a thread becomes that acts as this identity; nothing when there is no such account, or when nobody has asked
    // for it yet.
    std::optional<UnixAccount> m_account;
    // The service itself, which logs on elsewhere with its own tickets.
    bool m_bService = false;
    // With what anybody else logs on elsewhere: tickets that the user has delegated, or else, where the KDC allows it,
    // the user's ticket for the service. Each may be null.
    std::shared_ptr<DelegatedTickets> m_pDelegated;
    std::shared_ptr<LogonEvidence> m_pEvidence{};
};

// The SIDs of an identity: the PAC's, else the account's. Nothing when the PAC's cannot be read, or there is neither:
// never the account's in place of what a directory has said. Throws std::bad_alloc.
std::optional<TokenSids> SidsOf(const TokenIdentity& i_identity);

}  // namespace morwen
