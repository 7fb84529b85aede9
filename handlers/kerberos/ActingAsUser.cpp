#include "handlers/kerberos/ActingAsUser.h"

#include <new>
#include <string>
#include <utility>

#include "handlers/SystemErrorText.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

namespace {

void TraceRefused(const char* i_pszText, SECURITY_STATUS i_nStatus) noexcept {
    if (i_pszText == nullptr || !Harrowlib201::ShouldTrace()) {
        return;
    }
    try {
        std::string text = i_pszText;
        text.replace(text.find("%d"), 2, std::to_string(i_nStatus));
        Harrowlib201::STrace(__FILE__, __LINE__, text.c_str(), {});
    } catch (const std::bad_alloc&) {
        Harrowlib201::STrace(__FILE__, __LINE__, i_pszText, {});
    }
}

}  // namespace

bool RevertFromUser(CtxtHandle* i_pContext, const RevertTexts& i_texts) noexcept {
    const SECURITY_STATUS nStatus = Platform::Sspi().RevertSecurityContext(i_pContext);
    if (nStatus == SEC_E_OK) {
        return true;
    }
    NoteReason(nStatus);
    TraceRefused(i_texts.m_pszRefused, nStatus);
    return RevertToProcess(i_texts);
}

bool RevertToProcess(const RevertTexts& i_texts) noexcept {
    const bool bReverted = Platform::Tokens().RevertToSelf() != FALSE;
    if (!bReverted && Harrowlib201::ShouldAssert()) {
        Harrowlib201::SAssert(__FILE__, __LINE__, i_texts.m_pszCondition, i_texts.m_pszMessage);
    }
    return bReverted;
}

bool ActingAsUser::Begin() noexcept {
    const SECURITY_STATUS nStatus = Platform::Sspi().ImpersonateSecurityContext(m_pContext);
    m_bActing = nStatus == SEC_E_OK;
    if (!m_bActing) {
        NoteReason(nStatus);
    }
    return m_bActing;
}

bool ActingAsUser::End() noexcept {
    return !std::exchange(m_bActing, false) || RevertFromUser(m_pContext, m_texts);
}

}  // namespace morwen
