#include "negotiation/AcceptingNegotiation.h"

#include <utility>

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

constexpr const char* kOnlyNtlm =
    "ssoplugin: AcceptingNegotiation::Read() -- The client offers NTLM and no Kerberos, so it has no ticket for this "
    "service. Usual causes: the address names the server by number or by a name that is not the service principal's; "
    "the realm has no such principal (SPN); the client is not in the domain, or does not trust the site.";

}  // namespace

std::span<const uint8_t> AcceptingNegotiation::Read(std::span<const uint8_t> i_token) {
    m_mic.reset();
    if (m_bRaw) {
        return i_token;
    }
    if (m_eStage == Stage::Unused) {
        return ReadFirst(i_token);
    }
    const auto response = ReadNegTokenResp(i_token);
    if (!response) {
        Refuse(
            "ssoplugin: AcceptingNegotiation::Read() -- The client's token is no SPNEGO response, which follows here.");
    }
    if (response->m_eState == NegState::Reject) {
        Refuse("ssoplugin: AcceptingNegotiation::Read() -- The client gives up the negotiation.");
    }
    const auto token = response->m_token.value_or(std::span<const uint8_t>());
    const bool bMic = response->m_mic.has_value();
    const bool bFits =
        m_eStage == Stage::AwaitsMic ? token.empty() && bMic : m_eStage == Stage::Begun && !token.empty();
    if (!bFits || (bMic && response->m_mic->size() > kMostMicBytes)) {
        Refuse("ssoplugin: AcceptingNegotiation::Read() -- The client's SPNEGO response does not belong here.");
    }
    m_mic = response->m_mic;
    return token;
}

std::span<const uint8_t> AcceptingNegotiation::ReadFirst(std::span<const uint8_t> i_token) {
    switch (KindOfFirstToken(i_token)) {
        case FirstToken::Mechanism:
            m_bRaw = true;
            return i_token;
        case FirstToken::Ntlm:
            Refuse(kOnlyNtlm);
        case FirstToken::Negotiation:
            break;
    }
    const auto init = ReadNegTokenInit(i_token);
    if (!init) {
        Refuse(
            "ssoplugin: AcceptingNegotiation::Read() -- The client's first SPNEGO token cannot be read, or its list of "
            "mechanisms is too long.");
    }
    if (!init->m_nKerberos) {
        Refuse(init->m_bNtlm ? kOnlyNtlm
                             : "ssoplugin: AcceptingNegotiation::Read() -- Kerberos is not among the mechanisms that "
                               "the client offers.");
    }
    if (init->m_mic && init->m_mic->size() > kMostMicBytes) {
        Refuse("ssoplugin: AcceptingNegotiation::Read() -- The client's MIC is too long.");
    }
    m_list.assign(init->m_list.begin(), init->m_list.end());
    m_eMechanism = init->m_eKerberos;
    m_bMicRequired = *init->m_nKerberos != 0;
    m_eStage = Stage::Begun;
    if (m_bMicRequired) {
        return {};  // the token is one of the mechanism that the client likes best
    }
    m_mic = init->m_mic;
    return init->m_token.value_or(std::span<const uint8_t>());
}

uint32_t AcceptingNegotiation::Requirements() const noexcept {
    return m_bMicRequired || m_mic ? ASC_REQ_INTEGRITY : 0;
}

std::vector<uint8_t> AcceptingNegotiation::Answer(const MechanismStep& i_step) {
    NegTokenResp answer;
    if (!std::exchange(m_bAnswered, true)) {
        answer.m_eMechanism = m_eMechanism;
        answer.m_eState = m_bMicRequired ? NegState::RequestMic : NegState::Incomplete;
    } else {
        answer.m_eState = NegState::Incomplete;
    }
    if (!i_step.m_token.empty()) {
        answer.m_token = i_step.m_token;
    }
    return i_step.m_bDone ? Finish(i_step, answer) : MakeNegTokenResp(answer);
}

std::vector<uint8_t> AcceptingNegotiation::Finish(const MechanismStep& i_step, NegTokenResp& io_answer) {
    const bool bAwaited = std::exchange(m_eStage, Stage::Failed) == Stage::AwaitsMic;  // failed until all is well
    if (m_mic) {
        CheckListMic(i_step.m_pContext, m_list, *m_mic);
    }
    if (bAwaited) {  // and read only with a MIC
        m_eStage = Stage::Complete;
        return {};
    }
    const bool bRequired = m_bMicRequired && i_step.m_bIntegrity;
    if (bRequired && !m_mic && i_step.m_token.empty()) {
        Refuse(
            "ssoplugin: AcceptingNegotiation::Answer() -- The client likes another mechanism better than Kerberos and "
            "does not prove, by a MIC, which ones it has offered.");
    }
    std::vector<uint8_t> mic;
    if (bRequired || m_mic) {
        mic = MakeListMic(i_step.m_pContext, m_list);
        io_answer.m_mic = mic;
    }
    const bool bComplete = !bRequired || m_mic;
    if (bComplete) {
        io_answer.m_eState = NegState::Completed;
    }
    std::vector<uint8_t> answer = MakeNegTokenResp(io_answer);
    m_eStage = bComplete ? Stage::Complete : Stage::AwaitsMic;
    return answer;
}

}  // namespace morwen
