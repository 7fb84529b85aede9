// What a Kerberos token carries of the channel that its login is for (RFC 4121, section 4.1.1.2).
#pragma once

#include <krb5/krb5.h>

#include <array>
#include <cstdint>
#include <span>

namespace morwen {

using ChannelHash = std::array<uint8_t, 16>;  // all zero: the token is bound to no channel

// Most say that there is no address by leaving its type unspecified; Java says that it is null.
enum class NoAddress : uint8_t { Unspecified = 0, Null = 255 };

struct Channel {
    NoAddress m_eAddresses = NoAddress::Unspecified;
    std::span<const uint8_t> m_applicationData = {};
};

// Throws SspiFailure when the library does not make it.
ChannelHash HashChannel(krb5_context i_context, const Channel& i_channel);

}  // namespace morwen
