#include "handlers/kerberos/LogonInformation.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <limits>
#include <new>
#include <string>

#include "errors/SSOException.h"
#include "handlers/SystemErrorText.h"
#include "handlers/kerberos/ActingAsUser.h"
#include "handlers/kerberos/SSPISession.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr DWORD SSPI_DEFAULT_USER_DATA_BUFFER_SIZE = 4096;

constexpr RevertTexts kRevertTexts = {nullptr, "RevertToSelf()", nullptr};

// The token of the user who logged on. Where the context itself can be asked, no identity changes; elsewhere the thread
// runs as the user until End, or until this object goes.
class LogonToken {
public:
    explicit LogonToken(CtxtHandle* i_pContext) : m_user(i_pContext, kRevertTexts) {
        const SECURITY_STATUS nStatus = Platform::Sspi().OpenContextToken(i_pContext, &m_hUser);
        if (nStatus == SEC_E_UNSUPPORTED_FUNCTION) {
            OpenByImpersonating();
        } else if (nStatus != SEC_E_OK) {
            NoteReason(nStatus);
            static_cast<void>(End());  // the destructor does not run when the constructor throws
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- OpenContextToken() failed: %1",
                    GetErrorText(nStatus));
            throw SSOException(SSO_ERROR);
        }
        S_ASSERT_TEXT(m_hUser != nullptr, "hUser");
    }
    ~LogonToken() { static_cast<void>(End()); }
    LogonToken(const LogonToken&) = delete;
    LogonToken& operator=(const LogonToken&) = delete;

    HANDLE get() const noexcept { return m_hUser; }

    // False when the thread could not be made itself again.
    bool End() noexcept {
        const bool bReverted = m_user.End();
        if (m_hUser != nullptr) {
            const BOOL bClosed = Platform::Tokens().CloseHandle(m_hUser);
            S_ASSERT_TEXT(bClosed, "CloseHandle(hUser)");
            m_hUser = nullptr;
        }
        return bReverted;
    }

private:
    void OpenByImpersonating() {
        if (!m_user.Begin()) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Could not impersonate.");
            throw SSOException(SSO_ERROR, kMsgImpersonation);
        }
        if (Platform::Tokens().OpenThreadToken(Platform::Kernel().GetCurrentThread(), TOKEN_QUERY, TRUE, &m_hUser)) {
            return;
        }
        const auto nError = static_cast<SECURITY_STATUS>(Platform::Kernel().GetLastError());
        m_hUser = nullptr;
        NoteReason(nError);
        const bool bReverted = m_user.End();
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- OpenThreadToken() failed: %1",
                GetErrorText(nError));
        throw SSOException(SSO_ERROR, bReverted ? kMsgGeneral : kMsgImpersonation);
    }

    ActingAsUser m_user;
    HANDLE m_hUser = nullptr;
};

char16_t* PutNumber(uint32_t i_nNumber, char16_t* o_pszText) {
    char digits[10];
    return std::copy(digits, std::to_chars(std::begin(digits), std::end(digits), i_nNumber).ptr, o_pszText);
}

// Throws SSOException for what is no SID, and std::bad_alloc.
void AppendSid(PSID i_pSid, std::u16string& io_text) {
    TokenCalls& tokens = Platform::Tokens();
    if (!tokens.IsValidSid(i_pSid)) {
        throw SSOException(SSO_ERROR);
    }
    constexpr size_t kUsualLength = 256;
    constexpr size_t kHeadLength = 28;  // with a zero at the end
    constexpr size_t kNumberLength = 12;
    const BYTE nSubAuthorities = *tokens.GetSidSubAuthorityCount(i_pSid);
    if (kHeadLength + kNumberLength * nSubAuthorities > kUsualLength) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::SIDToSString() -- Buffer too small.  Reallocating.");
    }
    char16_t szText[kHeadLength + kNumberLength * std::numeric_limits<BYTE>::max()];  // on the stack: any SID's fits
    char16_t* pszEnd = szText;
    *pszEnd++ = u'S';
    *pszEnd++ = u'-';
    pszEnd = PutNumber(static_cast<const SID*>(i_pSid)->Revision, pszEnd);
    *pszEnd++ = u'-';
    const BYTE* pAuthority = tokens.GetSidIdentifierAuthority(i_pSid)->Value;
    if (pAuthority[0] != 0 || pAuthority[1] != 0) {
        char szAuthority[2 + 12 + 1];
        static_cast<void>(std::snprintf(szAuthority, std::size(szAuthority), "0x%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx",
                                        pAuthority[0], pAuthority[1], pAuthority[2], pAuthority[3], pAuthority[4],
                                        pAuthority[5]));
        pszEnd = std::copy(szAuthority, szAuthority + std::size(szAuthority) - 1, pszEnd);
    } else {
        pszEnd = PutNumber((uint32_t{pAuthority[2]} << 24) | (uint32_t{pAuthority[3]} << 16) |
                               (uint32_t{pAuthority[4]} << 8) | uint32_t{pAuthority[5]},
                           pszEnd);
    }
    for (DWORD i = 0; i < nSubAuthorities; ++i) {
        *pszEnd++ = u'-';
        pszEnd = PutNumber(*tokens.GetSidSubAuthority(i_pSid, i), pszEnd);
    }
    io_text.append(szText, pszEnd);
}

void ReadToken(HANDLE i_hUser, Parameters& o_parameters) {
    SWCharString ssSid;
    std::unique_ptr<BYTE[]> pUserDataBuffer;
    GetUserData(i_hUser, TokenUser, &pUserDataBuffer);
    S_ASSERT(pUserDataBuffer);
    SIDToSString(reinterpret_cast<const TOKEN_USER*>(pUserDataBuffer.get())->User.Sid, ssSid);
    S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- User's SID is %1", ssSid);
    o_parameters.SetParameter(u"SSPI_USER_SID", ssSid);

    std::unique_ptr<BYTE[]> pGroupDataBuffer;
    GetUserData(i_hUser, TokenGroups, &pGroupDataBuffer);
    S_ASSERT(pGroupDataBuffer);
    const auto* pGroups = reinterpret_cast<const TOKEN_GROUPS*>(pGroupDataBuffer.get());
    const SID_AND_ATTRIBUTES* pGroup = pGroups->Groups;
    constexpr size_t kUsualSidLength = 48;
    std::u16string groups;
    groups.reserve(pGroups->GroupCount * kUsualSidLength);
    for (DWORD i = 0; i < pGroups->GroupCount; ++i, ++pGroup) {
        const size_t nBefore = groups.size();
        AppendSid(pGroup->Sid, groups);
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Group's SID is %1",
                SWCharString(std::u16string_view(groups).substr(nBefore)));
        groups += u';';
    }
    o_parameters.SetParameter(u"SSPI_USER_GROUP_SIDS", SWCharString(groups));
}

}  // namespace

void GetLogonInformation(const SSOSessionPtr& i_pSession, Parameters& o_parameters) {
    const auto pSession = CountedCast<SSPISession>(i_pSession);
    if (!pSession) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Wrong type of SSOSessionPtr passed in.");
        throw SSOException(SSO_ERROR);
    }
    Parameters information = o_parameters;
    LogonToken token(pSession->GetContext());
    // Whatever has failed before, the host must learn that this thread is not itself.
    const auto requireEnd = [&token] {
        if (!token.End()) {
            throw SSOException(SSO_ERROR, kMsgImpersonation);
        }
    };
    try {
        ReadToken(token.get(), information);
    } catch (const std::bad_alloc&) {
        requireEnd();
        throw SSOException(SSOException::OutOfMemory());
    } catch (...) {
        requireEnd();
        throw;
    }
    requireEnd();
    o_parameters = std::move(information);
}

void GetUserData(HANDLE i_hUserHandle, TOKEN_INFORMATION_CLASS i_eClass, std::unique_ptr<BYTE[]>* o_TokenInformation) {
    S_ASSERT(i_hUserHandle);
    S_ASSERT(o_TokenInformation);
    if (i_hUserHandle == nullptr || o_TokenInformation == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    if (*o_TokenInformation != nullptr) {
        S_TRACE(
            "ssoplugin: KerberosSSPIHandler::GetUserData() -- Non-NULL out-param.  This will be overwritten and lost!");
        S_ASSERT(!*o_TokenInformation);
    }
    const auto allocate = [](DWORD i_nSize) {
        try {
            return std::make_unique_for_overwrite<BYTE[]>(i_nSize);  // only what the system writes is read
        } catch (const std::bad_alloc&) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- Out of memory!");
            throw SSOException(SSOException::OutOfMemory());
        }
    };
    auto pBuffer = allocate(SSPI_DEFAULT_USER_DATA_BUFFER_SIZE);
    DWORD dwRequiredBufferSize = 0;
    if (!Platform::Tokens().GetTokenInformation(i_hUserHandle, i_eClass, pBuffer.get(),
                                                SSPI_DEFAULT_USER_DATA_BUFFER_SIZE, &dwRequiredBufferSize)) {
        if (Platform::Kernel().GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- GetTokenInformation failed (first try).");
            throw SSOException(SSO_ERROR);
        }
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- Reallocating buffer.  Size is %1.",
                uint64_t{dwRequiredBufferSize});
        S_ASSERT(dwRequiredBufferSize > SSPI_DEFAULT_USER_DATA_BUFFER_SIZE);
        pBuffer.reset();
        pBuffer = allocate(dwRequiredBufferSize);
        if (!Platform::Tokens().GetTokenInformation(i_hUserHandle, i_eClass, pBuffer.get(), dwRequiredBufferSize,
                                                    &dwRequiredBufferSize)) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- GetTokenInformation failed (second try).");
            throw SSOException(SSO_ERROR);
        }
    }
    S_ASSERT(pBuffer);
    *o_TokenInformation = std::move(pBuffer);
}

void SIDToSString(PSID i_pSid, SWCharString& o_ssText) {
    std::u16string text;
    try {
        AppendSid(i_pSid, text);
    } catch (const std::bad_alloc&) {
        S_ASSERT_MSG(false, "ssoplugin: KerberosSSPIHandler::SIDToSString() -- Out of memory");
        S_ASSERT_TEXT(false, "pszTextualSid");
        throw SSOException(SSO_ERROR);
    }
    o_ssText = SWCharString(text);
}

}  // namespace morwen
