// The security package calls on libkrb5.
#pragma once

#include "platform/SspiCalls.h"
#include "platform/linux/logon/LinuxCredential.h"
#include "platform/linux/logon/SecurityContext.h"
#include "platform/linux/seam/HandleTable.h"

namespace morwen {

// Checks arguments and handles, and forwards. Any method on any thread; two calls on one context wait for each other,
// and one that works on a handle which another thread frees comes to its end. A call that fails leaves its outputs
// alone, but for the length of an output token, which then is 0; FailureText has the words.
class LinuxSspi final : public SspiCalls {
public:
    SECURITY_STATUS QuerySecurityPackageInfoW(SEC_WCHAR* i_pszPackage, PSecPkgInfoW* o_ppInfo) noexcept override;
    SECURITY_STATUS FreeContextBuffer(void* i_pvBuffer) noexcept override;

    SECURITY_STATUS AcquireCredentialsHandleW(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR* i_pszPackage, ULONG i_nUse,
                                              void* i_pvLogonId, void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey,
                                              void* i_pvGetKeyArgument, PCredHandle o_pCredential,
                                              PTimeStamp o_ptsExpiry) noexcept override;
    SECURITY_STATUS FreeCredentialsHandle(PCredHandle i_pCredential) noexcept override;

    SECURITY_STATUS InitializeSecurityContextW(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                               SEC_WCHAR* i_pszTargetName, ULONG i_nRequirements, ULONG i_nReserved1,
                                               ULONG i_nDataRepresentation, PSecBufferDesc i_pInput, ULONG i_nReserved2,
                                               PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                               ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) noexcept override;
    SECURITY_STATUS AcceptSecurityContext(PCredHandle i_pCredential, PCtxtHandle i_pContext, PSecBufferDesc i_pInput,
                                          ULONG i_nRequirements, ULONG i_nDataRepresentation, PCtxtHandle o_pNewContext,
                                          PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                          PTimeStamp o_ptsExpiry) noexcept override;

    SECURITY_STATUS QueryContextAttributesW(PCtxtHandle i_pContext, ULONG i_nAttribute,
                                            void* o_pvBuffer) noexcept override;
    SECURITY_STATUS ImpersonateSecurityContext(PCtxtHandle i_pContext) noexcept override;
    SECURITY_STATUS RevertSecurityContext(PCtxtHandle i_pContext) noexcept override;
    SECURITY_STATUS DeleteSecurityContext(PCtxtHandle i_pContext) noexcept override;
    SECURITY_STATUS MakeSignature(PCtxtHandle i_pContext, ULONG i_nQuality, PSecBufferDesc io_pMessage,
                                  ULONG i_nSequence) noexcept override;
    SECURITY_STATUS VerifySignature(PCtxtHandle i_pContext, PSecBufferDesc i_pMessage, ULONG i_nSequence,
                                    ULONG* o_pnQuality) noexcept override;
    SECURITY_STATUS OpenContextToken(PCtxtHandle i_pContext, HANDLE* o_phToken) noexcept override;
    bool AcceptsAsService() const noexcept override { return true; }
    void ReleaseHeld() noexcept override;

private:
    std::shared_ptr<LinuxCredential> Credential(PCredHandle i_pCredential) const;
    std::shared_ptr<SecurityContext> Context(PCtxtHandle i_pContext) const;

    enum class Need { Sids, Account };
    // Has what is needed, or SspiFailure is thrown. SIDs come from the PAC's logon information, when there is some,
    // else from the account.
    static std::shared_ptr<const TokenIdentity> IdentityOf(SecurityContext& io_logon, Need i_eNeed);

    SECURITY_STATUS StartLogon(const LinuxCredential& i_credential, const SEC_WCHAR* i_pszTargetName,
                               ULONG i_nRequirements, PSecBufferDesc i_pInput, PCtxtHandle o_pNewContext,
                               PSecBufferDesc io_pOutput, ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry);
    SECURITY_STATUS FinishLogon(const LinuxCredential& i_credential, PCtxtHandle i_pContext, PSecBufferDesc i_pInput,
                                PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                PTimeStamp o_ptsExpiry);
    SECURITY_STATUS AcceptLogon(const LinuxCredential& i_credential, PSecBufferDesc i_pInput, ULONG i_nRequirements,
                                PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                PTimeStamp o_ptsExpiry);

    HandleTable<LinuxCredential> m_credentials{0x63726564};
    HandleTable<SecurityContext> m_contexts{0x63747874};
};

// The one object of the process; it is never destroyed.
SspiCalls& TheLinuxSspi();

}  // namespace morwen
