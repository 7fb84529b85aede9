#include "handlers/ActingLevel.h"

#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

bool IsOfActingLevel(HANDLE i_hToken) noexcept {
    SECURITY_IMPERSONATION_LEVEL eLevel = SecurityAnonymous;
    DWORD nLength = 0;
    if (!Platform::Tokens().HasImpersonationLevels() ||
        (Platform::Tokens().GetTokenInformation(i_hToken, TokenImpersonationLevel, &eLevel, sizeof(eLevel), &nLength) &&
         eLevel >= SecurityImpersonation)) {
        return true;
    }
    S_REASON("ssoplugin: IsOfActingLevel() -- The token says who its user is, and lets nobody act as that.");
    return false;
}

bool IsThreadActing() noexcept {
    TokenCalls& tokens = Platform::Tokens();
    HANDLE hToken = nullptr;
    if (!tokens.HasImpersonationLevels()) {
        return true;
    }
    if (!tokens.OpenThreadToken(Platform::Kernel().GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken)) {
        return false;
    }
    const bool bActs = IsOfActingLevel(hToken);
    const BOOL bClosed = tokens.CloseHandle(hToken);
    S_ASSERT_TEXT(bClosed, "CloseHandle(hToken)");
    return bActs;
}

}  // namespace morwen
