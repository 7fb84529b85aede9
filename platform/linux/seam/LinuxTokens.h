// The calls on tokens and security identifiers, over this layer's own token table.
#pragma once

#include "platform/TokenCalls.h"

namespace morwen {

class LinuxTokens final : public TokenCalls {
public:
    BOOL OpenThreadToken(HANDLE i_hThread, DWORD i_nAccess, BOOL i_bOpenAsSelf, HANDLE* o_phToken) noexcept override;
    BOOL OpenProcessToken(HANDLE i_hProcess, DWORD i_nAccess, HANDLE* o_phToken) noexcept override;
    BOOL GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer, DWORD i_nLength,
                             DWORD* o_pnRequiredLength) noexcept override;
    BOOL ImpersonateLoggedOnUser(HANDLE i_hToken) noexcept override;
    BOOL RevertToSelf() noexcept override;
    BOOL CloseHandle(HANDLE i_hToken) noexcept override;
    bool HasImpersonationLevels() noexcept override { return false; }

    BOOL IsValidSid(PSID i_pSid) noexcept override;
    SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID i_pSid) noexcept override;
    BYTE* GetSidSubAuthorityCount(PSID i_pSid) noexcept override;
    DWORD* GetSidSubAuthority(PSID i_pSid, DWORD i_nIndex) noexcept override;
};

}  // namespace morwen
