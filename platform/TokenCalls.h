// The calls on access tokens and security identifiers that the plug-in makes.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// Each method has the name, the shape and the meaning of the system's function; after a failure KernelCalls'
// GetLastError tells why, on the same thread. Methods may be called on any thread; they never throw.
class TokenCalls {
public:
    TokenCalls() = default;
    TokenCalls(const TokenCalls&) = delete;
    TokenCalls& operator=(const TokenCalls&) = delete;
    virtual ~TokenCalls() = default;

    virtual BOOL OpenThreadToken(HANDLE i_hThread, DWORD i_nAccess, BOOL i_bOpenAsSelf, HANDLE* o_phToken) noexcept = 0;
    virtual BOOL OpenProcessToken(HANDLE i_hProcess, DWORD i_nAccess, HANDLE* o_phToken) noexcept = 0;
    virtual BOOL GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer,
                                     DWORD i_nLength, DWORD* o_pnRequiredLength) noexcept = 0;
    virtual BOOL ImpersonateLoggedOnUser(HANDLE i_hToken) noexcept = 0;
    virtual BOOL RevertToSelf() noexcept = 0;
    virtual BOOL CloseHandle(HANDLE i_hToken) noexcept = 0;
    // Not a call of the system: whether a thread may have somebody's token and not act as that, so that the token's
    // level (GetTokenInformation, TokenImpersonationLevel) must be asked for.
    virtual bool HasImpersonationLevels() noexcept = 0;

    virtual BOOL IsValidSid(PSID i_pSid) noexcept = 0;
    virtual SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID i_pSid) noexcept = 0;
    virtual BYTE* GetSidSubAuthorityCount(PSID i_pSid) noexcept = 0;
    virtual DWORD* GetSidSubAuthority(PSID i_pSid, DWORD i_nIndex) noexcept = 0;
};

}  // namespace morwen
