#include "negotiation/InitiatingNegotiation.h"

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"
#include "negotiation/MechListMic.h"

namespace morwen {

namespace {

[[noreturn]] void Refuse(const char* i_pszReason) {
    S_REASON(i_pszReason);
    throw SSOException(SSO_ERROR);
}

}  // namespace

std::span<const uint8_t> InitiatingNegotiation::Read(std::span<const uint8_t> i_answer) {
    if (m_bFailed) {
        Refuse("ssoplugin: InitiatingNegotiation::Read() -- The negotiation has failed.");
    }
    const auto answer = ReadNegTokenResp(i_answer);
    if (!answer) {
        Refuse("ssoplugin: InitiatingNegotiation::Read() -- The server's answer is no SPNEGO response.");
    }
    if (answer->m_eMechanism && !IsKerberos(*answer->m_eMechanism)) {
        Refuse("ssoplugin: InitiatingNegotiation::Read() -- The server wants another mechanism than Kerberos.");
    }
    const auto token = answer->m_token.value_or(std::span<const uint8_t>());
    if (token.empty()) {
        Refuse(
            answer->m_eState == NegState::Reject
                ? "ssoplugin: InitiatingNegotiation::Read() -- The server rejects the negotiation and does not say "
                  "why."
                : "ssoplugin: InitiatingNegotiation::Read() -- The server's SPNEGO response holds no Kerberos token.");
    }
    m_answer = answer;
    return token;
}

std::vector<uint8_t> InitiatingNegotiation::Answer(std::span<const uint8_t> i_token, bool i_bDone,
                                                   CtxtHandle* i_pContext) {
    if (!m_answer) {
        return MakeNegTokenInit(MakeMechanismList(), i_token);
    }
    return i_bDone ? Finish(i_token, i_pContext)
                   : MakeNegTokenResp({.m_eState = NegState::Incomplete, .m_token = i_token});
}

std::vector<uint8_t> InitiatingNegotiation::Finish(std::span<const uint8_t> i_token, CtxtHandle* i_pContext) {
    const NegTokenResp& answer = *m_answer;
    m_bFailed = true;  // unless all is well
    if (answer.m_eState == NegState::Reject) {
        Refuse(
            "ssoplugin: InitiatingNegotiation::Finish() -- The server proves who it is and rejects the logon all the "
            "same.");
    }
    if (answer.m_eState == NegState::RequestMic && !answer.m_mic) {
        Refuse(
            "ssoplugin: InitiatingNegotiation::Finish() -- The server asks for a MIC of the mechanisms and sends "
            "none.");
    }
    NegTokenResp last;
    std::vector<uint8_t> mic;
    if (!i_token.empty()) {
        last.m_token = i_token;
    }
    if (answer.m_mic) {
        const std::vector<uint8_t> list = MakeMechanismList();
        CheckListMic(i_pContext, list, *answer.m_mic);
        if (answer.m_eState != NegState::Completed) {
            mic = MakeListMic(i_pContext, list);
            last.m_mic = mic;
            last.m_eState = NegState::Completed;
        }
    }
    std::vector<uint8_t> token = last.m_mic || last.m_token ? MakeNegTokenResp(last) : std::vector<uint8_t>();
    m_bFailed = false;
    return token;
}

}  // namespace morwen
