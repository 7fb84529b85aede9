// The handles under which tokens are known.
#pragma once

#include <memory>

#include "platform/OsTypes.h"
#include "platform/linux/identity/TokenIdentity.h"

namespace morwen {

// Makes a handle for an identity; it goes back through TokenCalls' CloseHandle. Throws std::bad_alloc.
HANDLE OpenToken(std::shared_ptr<const TokenIdentity> i_pIdentity);

// The identity of an open token; null for a handle that is closed or never was one.
std::shared_ptr<const TokenIdentity> FindToken(HANDLE i_hToken) noexcept;

// The SIDs of an open token's identity; null where SidsOf gives nothing, or for no open token. Throws std::bad_alloc.
std::shared_ptr<const TokenSids> SidsOfToken(HANDLE i_hToken);

// False, and nothing done, for a handle that is closed or never was one.
bool CloseToken(HANDLE i_hToken) noexcept;

}  // namespace morwen
