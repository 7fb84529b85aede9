// The initiating side of SPNEGO (RFC 4178): offers Kerberos alone, with its first token.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "negotiation/NegToken.h"
#include "platform/OsTypes.h"

namespace morwen {

// One login's. Used by one step at a time.
class InitiatingNegotiation {
public:
    // The token for the server around the mechanism's first. Throws std::bad_alloc.
    static std::vector<uint8_t> Begin(std::span<const uint8_t> i_token);

    // The mechanism's token within the server's answer; it is not empty. Throws SSOException (the reason is set); the
    // negotiation is then as it was. The answer must live until Finish.
    std::span<const uint8_t> Read(std::span<const uint8_t> i_answer);

    // The mechanism wants more: its token, for the server. Throws std::bad_alloc.
    static std::vector<uint8_t> GoOn(std::span<const uint8_t> i_token);

    // The mechanism's context is established, with what Read has given. The last token for the server; empty when it
    // waits for none. Throws SSOException (the reason is set) when the negotiation was tampered with, and the login has
    // failed for good; std::bad_alloc.
    std::vector<uint8_t> Finish(CtxtHandle* i_pContext);

private:
    NegTokenResp m_answer;  // that was read last
};

}  // namespace morwen
