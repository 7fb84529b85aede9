// Is a server's answer accepted only as the server has made it, and does a refused one leave the login as it was?
#include "fuzz/OpenMessage.h"

using namespace morwen;

// The first byte of the input chooses: changes to the valid answer, or a message of any content in a valid frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const bool s_bMade = (MakeTickets(), true);
    if (!s_bMade || i_nBytes < 4) {
        return 0;
    }
    const std::span<const uint8_t> input(i_pBytes + 1, i_nBytes - 1);
    const Result started = Start();
    MORWEN_INVARIANT(started.m_nCode == SSO_CONTINUE);
    const Result accepted = Accept(started.m_token);
    MORWEN_INVARIANT(accepted.m_nCode == SSO_CONTINUE);
    const GssTokenKind eKind = (i_pBytes[0] & 2) != 0 ? GssTokenKind::KrbError : GssTokenKind::ApReply;
    const Bytes answer = (i_pBytes[0] & 1) != 0 ? MakeGssToken(eKind, input) : Changed(accepted.m_token, input);
    const bool bDone = Continue(started.m_key, answer).m_nCode == SSO_OK;
    // The number of the message's type may be changed: the tag says it once more, and nobody asks for the number.
    MORWEN_INVARIANT(!bDone || Ciphertexts(answer) == Ciphertexts(accepted.m_token));
    MORWEN_INVARIANT(bDone ||
                     (answer != accepted.m_token && Continue(started.m_key, accepted.m_token).m_nCode == SSO_OK));
    MORWEN_INVARIANT(Accept({}, accepted.m_key).m_nCode == SSO_ACCEPTED);
    SSOReleaseAllSecurityContexts();
    return 0;
}
