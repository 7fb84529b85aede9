// What every provider type offers.
#pragma once

#include <cstdint>

#include "handlers/SSOCredentials.h"
#include "handlers/SSOSession.h"
#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/time/STimeSpan.h"
#include "params/Parameters.h"

namespace morwen {

using Harrowlib201::STimeSpan;

// Runs the handshakes of one authentication type, makes its sessions and credentials, and keeps its settings. There is
// one object for each type; every operation may be called by many threads at once. Failures are SSOExceptions; an
// operation that a type does not offer throws one with SSO_NOT_SUPPORTED, and callers must expect that.
class SSOHandler : public Harrowlib201::CRefCount {
public:
    // The side for which credentials are made.
    enum CredentialType : uint32_t { kInbound = 0, kOutbound = 1, kBoth = 2 };

    // The order of the operations is part of the interface.
    virtual void InitHandler(const Parameters& i_globalParameters) = 0;

    // A place in the order that no type uses and nobody calls.
    virtual void Reserved(void* i_pvArgument) = 0;

    // One step of the client. Returns 0 (complete) or 1 (send the output, go on with the answer). The output buffer
    // belongs to the caller, also when the step fails after it was handed out, and goes back through FreeBuffer; it is
    // null when the step fails before.
    virtual uint32_t InitializeContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                                       const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                                       uint64_t* o_pnBufferLength) = 0;

    // One step of the server. Returns 1 (send the output if there is one, and call again), 2 (complete), or 0 (the
    // package asks for completion). The output buffer as above; the logon information is filled when wanted and the
    // context is complete.
    virtual uint32_t AcceptContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                                   const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                                   uint64_t* o_pnBufferLength, bool i_bWantLogonInformation,
                                   Parameters& o_logonInformation) = 0;

    // Takes the calling thread's identity into the session. Returns 0.
    virtual uint32_t AcquireCurrentContext(const SSOSessionPtr& i_pSession, const Parameters& i_parameters);

    virtual SSOSessionPtr CreateSession(const ParasSeq* i_pLoginParameters) = 0;
    virtual SSOCredentialsPtr CreateCredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                                uint32_t i_nCredentialType) = 0;
    virtual uint8_t* AllocateBuffer(uint64_t i_nSize) = 0;
    virtual void FreeBuffer(uint8_t* i_pvBuffer) = 0;

    // The parameters that a login of this type needs, with empty values. Fixed once the handler is made.
    const Parameters& GetRequiredParameters() const noexcept { return m_requiredLoginParameters; }

    bool IsCachingOn() const;
    STimeSpan GetCacheExpiry() const;  // zero: contexts are kept without limit
    bool AreRenewalsAllowed() const;
    // Percentage of a context's lifetime that may be left when it is renewed.
    uint8_t GetRenewalThreshold() const;

protected:
    SSOHandler() = default;

    [[noreturn]] static void ThrowNotSupported();

    // Guards the settings, those of derived handlers included.
    mutable Harrowlib201::CRWLock m_lock;
    bool m_bCacheContexts S_GUARDED_BY(m_lock) = true;
    STimeSpan m_cacheExpiry S_GUARDED_BY(m_lock);
    uint8_t m_nRenewalThreshold S_GUARDED_BY(m_lock) = 5;
    bool m_bRenewalsAllowed S_GUARDED_BY(m_lock) = true;

    Parameters m_requiredLoginParameters;  // filled by the derived constructor
};

using SSOHandlerPtr = Harrowlib201::CSmartRefCountPtr<SSOHandler>;

}  // namespace morwen
