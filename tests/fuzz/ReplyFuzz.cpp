// Is a server's answer accepted only as the server has made it, and does a refused one leave the login as it was?
#include "fuzz/ForgedLogin.h"
#include "platform/linux/GssToken.h"

using namespace morwen;

// The first byte of the input chooses: changes to the valid answer, or a message of any content in a valid frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const bool s_bMade = (MakeTickets(), true);
    const std::span<const uint8_t> input(i_pBytes, i_nBytes);
    if (!s_bMade || input.size() < 4) {
        return 0;
    }
    const Result started = Start();
    MORWEN_INVARIANT(started.m_nCode == SSO_CONTINUE);
    const Result accepted = Accept(started.m_token);
    MORWEN_INVARIANT(accepted.m_nCode == SSO_CONTINUE);
    const auto goOn = [&](const Bytes& i_answer) {
        return Result([&](void** o_ppvToken, SSOLength* o_pnLength, SSOChar**) {
                   return SSOContinueLogin(started.m_key.c_str(), i_answer.data(),
                                           static_cast<SSOLength>(i_answer.size()), o_ppvToken, o_pnLength);
               }).m_nCode;
    };
    const GssTokenKind eKind = (input[0] & 2) != 0 ? GssTokenKind::KrbError : GssTokenKind::ApReply;
    const Bytes answer = (input[0] & 1) != 0 ? MakeGssToken(eKind, input.subspan(1))
                                             : Changed(accepted.m_token, input.subspan(1));
    const uint32_t nCode = goOn(answer);
    MORWEN_INVARIANT((nCode == SSO_OK) == (answer == accepted.m_token));
    MORWEN_INVARIANT(nCode == SSO_OK || goOn(accepted.m_token) == SSO_OK);
    MORWEN_INVARIANT(Result([&](void** o_ppvToken, SSOLength* o_pnLength, SSOChar** o_ppszKey) {
                         return SSOAcceptLogin(u"SSPI", accepted.m_key.c_str(), nullptr, 0, o_ppvToken, o_pnLength,
                                               nullptr, o_ppszKey);
                     }).m_nCode == SSO_ACCEPTED);
    SSOReleaseAllSecurityContexts();
    return 0;
}
