// The accepting side of SPNEGO (RFC 4178): takes the mechanism's tokens out of a client's, and wraps the answers.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "negotiation/NegToken.h"
#include "platform/OsTypes.h"

namespace morwen {

// What the mechanism has made of a token.
struct MechanismStep {
    bool m_bDone = false;       // its context is established
    bool m_bIntegrity = false;  // and can make MICs
    CtxtHandle* m_pContext = nullptr;
    std::span<const uint8_t> m_token = {};  // for the peer; empty: none
};

// One login's. A client that does not negotiate is let through: its tokens are the mechanism's own. Used by one step at
// a time: Read, then the mechanism if there is a token for it, then Answer.
class AcceptingNegotiation {
public:
    // The mechanism's token within the client's; empty when there is none, and the mechanism is not asked. Throws
    // SSOException (the reason is set); the negotiation is then as it was. The token must live until Answer.
    std::span<const uint8_t> Read(std::span<const uint8_t> i_token);

    // Whether the client negotiates: then each step is answered through Answer.
    bool IsUsed() const noexcept { return m_eStage != Stage::Unused; }
    // What the mechanism must be asked for besides: ASC_REQ_INTEGRITY where a MIC may have to be made.
    uint32_t Requirements() const noexcept;

    // The token for the client; empty when nothing is left to say. Throws SSOException (the reason is set), and the
    // negotiation has failed for good; std::bad_alloc.
    std::vector<uint8_t> Answer(const MechanismStep& i_step);

    // Whether the mechanism is done and the client has proved, where it must, which mechanisms it has offered.
    bool IsComplete() const noexcept { return m_eStage == Stage::Complete; }

private:
    enum class Stage : uint8_t { Unused, Begun, AwaitsMic, Complete, Failed };

    std::span<const uint8_t> ReadFirst(std::span<const uint8_t> i_token);
    std::vector<uint8_t> Finish(const MechanismStep& i_step, NegTokenResp& io_answer);

    Stage m_eStage = Stage::Unused;
    bool m_bRaw = false;          // the first token was the mechanism's own
    bool m_bMicRequired = false;  // Kerberos is not what the client likes best
    bool m_bAnswered = false;
    Mechanism m_eMechanism = Mechanism::Kerberos;   // as the client calls it
    std::vector<uint8_t> m_list;                    // as the client has sent it
    std::optional<std::span<const uint8_t>> m_mic;  // of this step's token
};

}  // namespace morwen
