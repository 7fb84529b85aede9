// Who a token stands for, and the handles under which tokens are known.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/OsTypes.h"
#include "platform/linux/Sid.h"
#include "platform/linux/UnixAccount.h"

namespace morwen {

class DelegatedTickets;

// Never changed once a token exists.
struct TokenIdentity {
    // What logon information is made of.
    Sid m_user;
    std::vector<Sid> m_groups;  // the primary group first

    // Whom a thread becomes that acts as this identity; nothing when there is no such account.
    std::optional<UnixAccount> m_account;
    // The service itself, which logs on elsewhere with its own tickets.
    bool m_bService = false;
    // With what anybody else logs on elsewhere; null without delegation.
    std::shared_ptr<DelegatedTickets> m_pDelegated;
};

// Makes a handle for an identity; it goes back through TokenCalls' CloseHandle. Throws std::bad_alloc.
HANDLE OpenToken(std::shared_ptr<const TokenIdentity> i_pIdentity);

// The identity of an open token; null for a handle that is closed or never was one.
std::shared_ptr<const TokenIdentity> FindToken(HANDLE i_hToken) noexcept;

// False, and nothing done, for a handle that is closed or never was one.
bool CloseToken(HANDLE i_hToken) noexcept;

}  // namespace morwen
