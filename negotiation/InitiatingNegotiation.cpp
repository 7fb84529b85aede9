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

std::vector<uint8_t> InitiatingNegotiation::Begin(std::span<const uint8_t> i_token) {
    return MakeNegTokenInit(MakeMechanismList(), i_token);
}

std::span<const uint8_t> InitiatingNegotiation::Read(std::span<const uint8_t> i_answer) {
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
    m_answer = *answer;
    return token;
}

std::vector<uint8_t> InitiatingNegotiation::GoOn(std::span<const uint8_t> i_token) {
    return MakeNegTokenResp({.m_eState = NegState::Incomplete, .m_token = i_token});
}

std::vector<uint8_t> InitiatingNegotiation::Finish(CtxtHandle* i_pContext) {
    const NegTokenResp answer = m_answer;
    m_answer = {};
    if (answer.m_eState == NegState::Reject) {
        Refuse(
            "ssoplugin: InitiatingNegotiation::Finish() -- The server has accepted the ticket and rejects the logon.");
    }
    if (!answer.m_mic) {
        if (answer.m_eState == NegState::RequestMic) {
            Refuse(
                "ssoplugin: InitiatingNegotiation::Finish() -- The server asks for a MIC of the mechanisms and sends "
                "none.");
        }
        return {};
    }
    const std::vector<uint8_t> list = MakeMechanismList();
    CheckListMic(i_pContext, list, *answer.m_mic);
    if (answer.m_eState == NegState::Completed) {
        return {};
    }
    const std::vector<uint8_t> mic = MakeListMic(i_pContext, list);
    return MakeNegTokenResp({.m_eState = NegState::Completed, .m_mic = mic});
}

}  // namespace morwen
