#include "handlers/kerberos/ActingAsUser.h"

#include <new>
#include <string>
#include <utility>

#include "errors/SSOException.h"
#include "handlers/SSOHandler.h"
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

EarlierUser::EarlierUser() {
    if (Platform::Tokens().OpenThreadToken(Platform::Kernel().GetCurrentThread(), TOKEN_QUERY | TOKEN_IMPERSONATE, TRUE,
                                           &m_hUser)) {
        return;
    }
    m_hUser = nullptr;
    if (const DWORD nError = Platform::Kernel().GetLastError(); nError != ERROR_NO_TOKEN) {
        NoteReason(static_cast<SECURITY_STATUS>(nError));
        S_TRACE("ssoplugin: KerberosSSPIHandler -- Whom the thread acts as cannot be found out: %1",
                GetErrorText(static_cast<SECURITY_STATUS>(nError)));
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
}

EarlierUser::~EarlierUser() {
    if (m_hUser != nullptr) {
        static_cast<void>(Platform::Tokens().CloseHandle(m_hUser));
    }
}

bool EarlierUser::Leave() const noexcept {
    return m_hUser == nullptr || Platform::Tokens().RevertToSelf() != FALSE;
}

bool EarlierUser::Resume() const noexcept {
    const bool bResumed = m_hUser == nullptr || Platform::Tokens().ImpersonateLoggedOnUser(m_hUser) != FALSE;
    if (!bResumed) {
        S_TRACE("ssoplugin: KerberosSSPIHandler -- The thread is not the user any more whom it acted as.");
    }
    return bResumed;
}

SECURITY_STATUS ActingAsUser::Begin() noexcept {
    const SECURITY_STATUS nStatus = Platform::Sspi().ImpersonateSecurityContext(m_pContext);
    m_bActing = nStatus == SEC_E_OK;
    if (!m_bActing) {
        NoteReason(nStatus);
    }
    return nStatus;
}

bool ActingAsUser::End() noexcept {
    return !std::exchange(m_bActing, false) || RevertFromUser(m_pContext, m_texts);
}

}  // namespace morwen
