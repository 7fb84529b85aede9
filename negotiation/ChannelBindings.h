// What both sides of a login know of the channel that it is for (RFC 5056), so that nobody between two channels can
// pass the login on.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "harrow/text/SWCharString.h"
#include "params/Parameters.h"

namespace morwen {

class ChannelBindings {
public:
    // Out of "TYPE:HEX": the type's name and what it says of the channel, such as "tls-server-end-point:9f86d0...".
    // With
    // ";null-addresses" behind it the addresses, of which there are none, have the type 255, as in Java's tokens.
    // Throws SSOException (the reason is set), std::bad_alloc.
    explicit ChannelBindings(const Harrowlib201::SWCharString& i_ssText);

    // The system's record of it, SEC_CHANNEL_BINDINGS, with the application data behind.
    std::span<const uint8_t> Record() const noexcept { return m_record; }

private:
    std::vector<uint8_t> m_record;
};

// What an accepting side does about channel bindings: by the settings SSPI_CHANNEL_BINDINGS and
// SSPI_CHANNEL_BINDINGS_RULE. Copies share the record.
class ChannelRule {
public:
    // Nobody is asked for any.
    ChannelRule() = default;
    // The settings laid over an earlier rule. Throws SSOException (the reason is set), std::bad_alloc.
    ChannelRule(const Parameters& i_settings, const ChannelRule& i_before);

    // For the package; empty when it is to look at none.
    std::span<const uint8_t> Record() const noexcept;
    // ASC_REQ_ALLOW_MISSING_BINDINGS where a client may do without.
    uint32_t Requirements() const noexcept;
    // The setting as the host has given it, for a login of the service to itself; empty when none is needed.
    const Harrowlib201::SWCharString& Text() const noexcept { return m_ssText; }

private:
    enum class What : uint8_t { Ignore, Check, Require };

    What m_eWhat = What::Ignore;
    Harrowlib201::SWCharString m_ssText;
    std::shared_ptr<const ChannelBindings> m_pBindings;
};

}  // namespace morwen
