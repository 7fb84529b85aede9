// The security package calls that the plug-in makes.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// Each method has the name, the shape and the meaning of the system's function. On a platform with SSPI it forwards and
// does nothing else. Methods may be called on any thread; they never throw.
class SspiCalls {
public:
    SspiCalls() = default;
    SspiCalls(const SspiCalls&) = delete;
    SspiCalls& operator=(const SspiCalls&) = delete;
    virtual ~SspiCalls() = default;

    // Out: one block that goes back through FreeContextBuffer.
    virtual SECURITY_STATUS QuerySecurityPackageInfoW(SEC_WCHAR* i_pszPackage, PSecPkgInfoW* o_ppInfo) noexcept = 0;
    virtual SECURITY_STATUS FreeContextBuffer(void* i_pvBuffer) noexcept = 0;

    virtual SECURITY_STATUS AcquireCredentialsHandleW(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR* i_pszPackage, ULONG i_nUse,
                                                      void* i_pvLogonId, void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey,
                                                      void* i_pvGetKeyArgument, PCredHandle o_pCredential,
                                                      PTimeStamp o_ptsExpiry) noexcept = 0;
    virtual SECURITY_STATUS FreeCredentialsHandle(PCredHandle i_pCredential) noexcept = 0;

    virtual SECURITY_STATUS InitializeSecurityContextW(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                                       SEC_WCHAR* i_pszTargetName, ULONG i_nRequirements,
                                                       ULONG i_nReserved1, ULONG i_nDataRepresentation,
                                                       PSecBufferDesc i_pInput, ULONG i_nReserved2,
                                                       PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                                       ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) noexcept = 0;
    virtual SECURITY_STATUS AcceptSecurityContext(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                                  PSecBufferDesc i_pInput, ULONG i_nRequirements,
                                                  ULONG i_nDataRepresentation, PCtxtHandle o_pNewContext,
                                                  PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                                  PTimeStamp o_ptsExpiry) noexcept = 0;

    virtual SECURITY_STATUS QueryContextAttributesW(PCtxtHandle i_pContext, ULONG i_nAttribute,
                                                    void* o_pvBuffer) noexcept = 0;
    virtual SECURITY_STATUS ImpersonateSecurityContext(PCtxtHandle i_pContext) noexcept = 0;
    virtual SECURITY_STATUS RevertSecurityContext(PCtxtHandle i_pContext) noexcept = 0;
    virtual SECURITY_STATUS DeleteSecurityContext(PCtxtHandle i_pContext) noexcept = 0;

    // Not a call of the system: the token of an accepted context, without impersonating anybody. A platform whose
    // contexts know who logged on answers here, so that a login needs no privilege; one where only an impersonating
    // thread can be asked returns SEC_E_UNSUPPORTED_FUNCTION, and the caller impersonates. Out: goes back through
    // TokenCalls' CloseHandle.
    virtual SECURITY_STATUS OpenContextToken(PCtxtHandle i_pContext, HANDLE* o_phToken) noexcept = 0;

    // Neither: whether credentials for accepting are the service's, also on a thread that acts as a user. Where they
    // are the thread's, the caller makes the thread the service meanwhile.
    virtual bool AcceptsAsService() const noexcept = 0;

    // Not a call of the system: the package has ended. A platform that holds keys and tickets between logons lets go of
    // them, and wipes them; it gets new ones when somebody logs on after all.
    virtual void ReleaseHeld() noexcept {}
};

}  // namespace morwen
