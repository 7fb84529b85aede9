// Is a client's token accepted only as the client has made it?
#include "fuzz/ForgedLogin.h"
#include "platform/linux/GssToken.h"

using namespace morwen;

// The first byte of the input chooses: changes to a valid token, or a message of any content in a valid frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const Bytes s_valid = (MakeTickets(), Start().m_token);
    const std::span<const uint8_t> input(i_pBytes, i_nBytes);
    if (input.size() < 4) {
        return 0;
    }
    const bool bFrame = (input[0] & 1) != 0;
    const Bytes token = bFrame ? MakeGssToken(GssTokenKind::ApRequest, input.subspan(1))
                               : Changed(s_valid, input.subspan(1));
    const Result result = Accept(token);
    MORWEN_INVARIANT((result.m_nCode == SSO_CONTINUE) == (token == s_valid));
    MORWEN_INVARIANT(result.m_nCode == SSO_CONTINUE || result.m_nCode == SSO_ERROR || result.m_nCode == SSO_DENIED);
    if (result.m_nCode == SSO_CONTINUE) {
        const Result closed([&](void** o_ppvToken, SSOLength* o_pnLength, SSOChar** o_ppszKey) {
            return SSOAcceptLogin(u"SSPI", result.m_key.c_str(), nullptr, 0, o_ppvToken, o_pnLength, nullptr,
                                  o_ppszKey);
        });
        MORWEN_INVARIANT(closed.m_nCode == SSO_ACCEPTED && SSOReleaseSecurityContext(closed.m_key.c_str()) == SSO_OK);
    }
    return 0;
}
