// What a Kerberos token carries of the channel that its login is for (RFC 4121, section 4.1.1.2).
#pragma once

#include <krb5/krb5.h>

#include <array>
#include <cstdint>
#include <span>

namespace morwen {

using ChannelHash = std::array<uint8_t, 16>;  // all zero: the token is bound to no channel

// Of bindings without addresses. Throws SspiFailure when the library does not make it.
ChannelHash HashChannel(krb5_context i_context, std::span<const uint8_t> i_applicationData);

}  // namespace morwen
