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
    // The mechanism's token within the server's answer; it is not empty. Throws SSOException (the reason is set); the
    // negotiation is then as it was. The answer must live until Finish.
    std::span<const uint8_t> Read(std::span<const uint8_t> i_answer);

    // The token for the server around the mechanism's, which its first step, or the one with what Read has given, has
    // made; i_bDone: with that its context is established. Empty when the server waits for nothing more. Throws
    // SSOException (the reason is set) when the negotiation was tampered with, and the login has failed for good;
    // std::bad_alloc.
    std::vector<uint8_t> Answer(std::span<const uint8_t> i_token, bool i_bDone, CtxtHandle* i_pContext);

private:
    std::vector<uint8_t> Finish(std::span<const uint8_t> i_token, CtxtHandle* i_pContext);

    bool m_bFailed = false;
    std::optional<NegTokenResp> m_answer;  // of the server, read last
};

}  // namespace morwen
