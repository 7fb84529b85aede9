// The handler of the type "THREADTOKEN": the identity under which a thread of the host already runs.
#pragma once

#include "handlers/SSOHandler.h"

namespace morwen {

// There is no handshake, so every operation of one throws SSO_NOT_SUPPORTED.
class ThreadTokenHandler : public SSOHandler {
public:
    ThreadTokenHandler();

    // Reads SSPI_CTXT_CACHE_EXPIRY (seconds); contexts are kept for a day unless it is given.
    void InitHandler(const Parameters& i_globalParameters) override;
    void Reserved(void* i_pvArgument) override;
    uint32_t InitializeContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                               const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                               uint64_t* o_pnBufferLength) override;
    uint32_t AcceptContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                           const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                           uint64_t* o_pnBufferLength, bool i_bWantLogonInformation,
                           Parameters& o_logonInformation) override;
    // Takes the calling thread's token, or the process's when the thread has none.
    uint32_t AcquireCurrentContext(const SSOSessionPtr& i_pSession, const Parameters& i_parameters) override;
    SSOSessionPtr CreateSession(const ParasSeq* i_pLoginParameters) override;
    SSOCredentialsPtr CreateCredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                        uint32_t i_nCredentialType) override;
    uint8_t* AllocateBuffer(uint64_t i_nSize) override;
    void FreeBuffer(uint8_t* i_pvBuffer) override;
};

}  // namespace morwen
