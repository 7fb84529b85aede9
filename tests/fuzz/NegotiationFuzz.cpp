// Who is let in by SPNEGO tokens that are changed, on either side, at either step?
#include "fuzz/OpenMessage.h"
#include "negotiation/NegToken.h"

using namespace morwen;

namespace {

constexpr ParasSeq kNegotiate = {u"" SSO_KEY_NEGOTIATE, SSO_PARAMETER_BOOL, u"1", nullptr};
constexpr ParasSeq kNegotiating = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"morwen/localhost@FUZZ.TEST",
                                   const_cast<ParasSeq*>(&kNegotiate)};

// The ciphertexts of the mechanism's token in a token of either kind.
Bytes Inside(const Bytes& i_token) {
    const auto init = ReadNegTokenInit(i_token);
    const auto response = ReadNegTokenResp(i_token);
    const auto token = init ? init->m_token : response ? response->m_token : std::nullopt;
    return token ? Ciphertexts(Bytes(token->begin(), token->end())) : Bytes();
}

void Close(const Result& i_accepted, bool i_bMay, bool i_bMust) {
    const bool bAccepted = i_accepted.m_nCode == SSO_CONTINUE && Accept({}, i_accepted.m_key).m_nCode == SSO_ACCEPTED;
    MORWEN_INVARIANT(bAccepted ? i_bMay : !i_bMust);
}

}  // namespace

// The first byte of the input chooses what the rest is.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const bool s_bMade = (MakeTickets(), true);
    if (!s_bMade || i_nBytes < 4) {
        return 0;
    }
    const Bytes input(i_pBytes + 1, i_pBytes + i_nBytes);
    const Result started = Start(kNegotiating);
    const Bytes& valid = started.m_token;
    MORWEN_INVARIANT(started.m_nCode == SSO_CONTINUE);
    switch (i_pBytes[0] % 5) {
        case 0: {  // the client's first token, changed
            const Bytes token = Changed(valid, input);
            const bool bWhole = Inside(token) == Inside(valid) || Ciphertexts(token) == Inside(valid);
            Close(Accept(token), bWhole, token == valid);
            break;
        }
        case 1:  // anything at all
            Close(Accept(input), false, false);
            break;
        case 2: {  // the proof of a list in which Kerberos comes second, or what stands in its place
            const auto init = ReadNegTokenInit(valid);
            const Bytes token(init->m_token->begin(), init->m_token->end());
            const Result asked = Accept(Der(0xA0, Der(0x30, Der(0xA0, Der(0x30, kNtlmObject + kKerberosObject)))));
            const Result proving = Accept(Der(0xA1, Der(0x30, Der(0xA2, Der(0x04, token)))), asked.m_key);
            MORWEN_INVARIANT(asked.m_nCode == SSO_CONTINUE && proving.m_nCode == SSO_CONTINUE);
            const bool bRaw = (input[0] & 1) != 0;
            Close(Accept(bRaw ? input : Der(0xA1, Der(0x30, Der(0xA3, Der(0x04, input)))), asked.m_key), false, false);
            break;
        }
        default: {  // the server's answer, changed, or any other
            const Result accepted = Accept(valid);
            MORWEN_INVARIANT(accepted.m_nCode == SSO_CONTINUE);
            const Bytes answer = i_pBytes[0] % 5 == 3 ? Changed(accepted.m_token, input) : Der(0xA1, input);
            const bool bDone = Continue(started.m_key, answer).m_nCode == SSO_OK;
            MORWEN_INVARIANT(!bDone || Inside(answer) == Inside(accepted.m_token));
            MORWEN_INVARIANT(bDone || answer != accepted.m_token);
            Close(accepted, true, true);
        }
    }
    SSOReleaseAllSecurityContexts();
    if (static unsigned s_nInputs = 0; ++s_nInputs % 10000 == 0) {  // ends what cannot be closed
        MORWEN_INVARIANT(SSOTermPackage() == SSO_OK && SSOInitPackage() == SSO_OK);
    }
    return 0;
}
