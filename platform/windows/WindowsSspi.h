// The security package calls, forwarded to the system.
#pragma once

#include "platform/SspiCalls.h"

namespace morwen {

class WindowsSspi final : public SspiCalls {
public:
    SECURITY_STATUS QuerySecurityPackageInfoW(SEC_WCHAR* i_pszPackage, PSecPkgInfoW* o_ppInfo) noexcept override {
        return ::QuerySecurityPackageInfoW(i_pszPackage, o_ppInfo);
    }
    SECURITY_STATUS FreeContextBuffer(void* i_pvBuffer) noexcept override { return ::FreeContextBuffer(i_pvBuffer); }

    SECURITY_STATUS AcquireCredentialsHandleW(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR* i_pszPackage, ULONG i_nUse,
                                              void* i_pvLogonId, void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey,
                                              void* i_pvGetKeyArgument, PCredHandle o_pCredential,
                                              PTimeStamp o_ptsExpiry) noexcept override {
        return ::AcquireCredentialsHandleW(i_pszPrincipal, i_pszPackage, i_nUse, i_pvLogonId, i_pvAuthData, i_pfnGetKey,
                                           i_pvGetKeyArgument, o_pCredential, o_ptsExpiry);
    }
    SECURITY_STATUS FreeCredentialsHandle(PCredHandle i_pCredential) noexcept override {
        return ::FreeCredentialsHandle(i_pCredential);
    }

    SECURITY_STATUS InitializeSecurityContextW(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                               SEC_WCHAR* i_pszTargetName, ULONG i_nRequirements, ULONG i_nReserved1,
                                               ULONG i_nDataRepresentation, PSecBufferDesc i_pInput, ULONG i_nReserved2,
                                               PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                               ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) noexcept override {
        return ::InitializeSecurityContextW(i_pCredential, i_pContext, i_pszTargetName, i_nRequirements, i_nReserved1,
                                            i_nDataRepresentation, i_pInput, i_nReserved2, o_pNewContext, io_pOutput,
                                            o_pnAttributes, o_ptsExpiry);
    }
    SECURITY_STATUS AcceptSecurityContext(PCredHandle i_pCredential, PCtxtHandle i_pContext, PSecBufferDesc i_pInput,
                                          ULONG i_nRequirements, ULONG i_nDataRepresentation, PCtxtHandle o_pNewContext,
                                          PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                          PTimeStamp o_ptsExpiry) noexcept override {
        return ::AcceptSecurityContext(i_pCredential, i_pContext, i_pInput, i_nRequirements, i_nDataRepresentation,
                                       o_pNewContext, io_pOutput, o_pnAttributes, o_ptsExpiry);
    }

    SECURITY_STATUS QueryContextAttributesW(PCtxtHandle i_pContext, ULONG i_nAttribute,
                                            void* o_pvBuffer) noexcept override {
        return ::QueryContextAttributesW(i_pContext, i_nAttribute, o_pvBuffer);
    }
    SECURITY_STATUS ImpersonateSecurityContext(PCtxtHandle i_pContext) noexcept override {
        return ::ImpersonateSecurityContext(i_pContext);
    }
    SECURITY_STATUS RevertSecurityContext(PCtxtHandle i_pContext) noexcept override {
        return ::RevertSecurityContext(i_pContext);
    }
    SECURITY_STATUS DeleteSecurityContext(PCtxtHandle i_pContext) noexcept override {
        return ::DeleteSecurityContext(i_pContext);
    }

    SECURITY_STATUS MakeSignature(PCtxtHandle i_pContext, ULONG i_nQuality, PSecBufferDesc io_pMessage,
                                  ULONG i_nSequence) noexcept override {
        return ::MakeSignature(i_pContext, i_nQuality, io_pMessage, i_nSequence);
    }
    SECURITY_STATUS VerifySignature(PCtxtHandle i_pContext, PSecBufferDesc i_pMessage, ULONG i_nSequence,
                                    ULONG* o_pnQuality) noexcept override {
        return ::VerifySignature(i_pContext, i_pMessage, i_nSequence, o_pnQuality);
    }

    // Only an impersonating thread can be asked here.
    SECURITY_STATUS OpenContextToken(PCtxtHandle, HANDLE*) noexcept override { return SEC_E_UNSUPPORTED_FUNCTION; }
    bool AcceptsAsService() const noexcept override { return false; }
};

}  // namespace morwen
