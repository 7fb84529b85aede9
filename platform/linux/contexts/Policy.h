// What this layer decides where the configuration leaves it open.
#pragma once

#include <string>

#include "platform/linux/contexts/SystemProfile.h"

namespace morwen {

// permitted_enctypes where the configuration has none: libkrb5's choice without RC4 and triple DES, which releases that
// are still in use permit by default, unless allow_rc4, allow_des3 or allow_weak_crypto brings them back. Throws
// std::bad_alloc.
std::string PermittedCiphers(const SystemProfile& i_system);

// Whether a realm's KDCs may be looked for in DNS.
bool MayAskDns(const SystemProfile& i_system) noexcept;

}  // namespace morwen
