// The calls on access tokens and security identifiers, forwarded to the system.
#pragma once

#include "platform/TokenCalls.h"

namespace morwen {

class WindowsTokens final : public TokenCalls {
public:
    BOOL OpenThreadToken(HANDLE i_hThread, DWORD i_nAccess, BOOL i_bOpenAsSelf, HANDLE* o_phToken) noexcept override {
        return ::OpenThreadToken(i_hThread, i_nAccess, i_bOpenAsSelf, o_phToken);
    }
    BOOL OpenProcessToken(HANDLE i_hProcess, DWORD i_nAccess, HANDLE* o_phToken) noexcept override {
        return ::OpenProcessToken(i_hProcess, i_nAccess, o_phToken);
    }
    BOOL GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer, DWORD i_nLength,
                             DWORD* o_pnRequiredLength) noexcept override {
        return ::GetTokenInformation(i_hToken, i_eClass, o_pvBuffer, i_nLength, o_pnRequiredLength);
    }
    BOOL ImpersonateLoggedOnUser(HANDLE i_hToken) noexcept override { return ::ImpersonateLoggedOnUser(i_hToken); }
    BOOL RevertToSelf() noexcept override { return ::RevertToSelf(); }
    BOOL CloseHandle(HANDLE i_hToken) noexcept override { return ::CloseHandle(i_hToken); }
    bool HasImpersonationLevels() noexcept override { return true; }

    BOOL IsValidSid(PSID i_pSid) noexcept override { return ::IsValidSid(i_pSid); }
    SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID i_pSid) noexcept override {
        return ::GetSidIdentifierAuthority(i_pSid);
    }
    BYTE* GetSidSubAuthorityCount(PSID i_pSid) noexcept override { return ::GetSidSubAuthorityCount(i_pSid); }
    DWORD* GetSidSubAuthority(PSID i_pSid, DWORD i_nIndex) noexcept override {
        return ::GetSidSubAuthority(i_pSid, i_nIndex);
    }
};

}  // namespace morwen
