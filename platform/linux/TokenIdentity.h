// Who a token stands for, and the handles under which tokens are known.
#pragma once

#include <memory>
#include <vector>

#include "platform/OsTypes.h"
#include "platform/linux/Sid.h"

namespace morwen {

// What logon information is made of. Never changed once a token exists.
struct TokenIdentity {
    Sid m_user;
    std::vector<Sid> m_groups;  // the primary group first
};

// Makes a handle for an identity; it goes back through TokenCalls' CloseHandle. Throws std::bad_alloc.
HANDLE OpenToken(std::shared_ptr<const TokenIdentity> i_pIdentity);

// The identity of an open token; null for a handle that is closed or never was one.
std::shared_ptr<const TokenIdentity> FindToken(HANDLE i_hToken) noexcept;

// False, and nothing done, for a handle that is closed or never was one.
bool CloseToken(HANDLE i_hToken) noexcept;

}  // namespace morwen
