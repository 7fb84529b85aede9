// The handler of the type "SSPI": Kerberos logins through the operating system's security package.
#pragma once

#include <vector>

#include "handlers/SSOHandler.h"
#include "handlers/kerberos/TokenBlocks.h"
#include "negotiation/ChannelBindings.h"

namespace morwen {

class KerberosSSPIHandler : public SSOHandler {
public:
    // Asks the package for its largest token. Throws SSOException (kMsgNoPackage) when there is no such package.
    KerberosSSPIHandler();
    // Keys and tickets do not outlive the package in the process's memory.
    ~KerberosSSPIHandler() override;

    // Reads the settings; those that are absent stay. On failure nothing is changed.
    void InitHandler(const Parameters& i_globalParameters) override;
    void Reserved(void* i_pvArgument) override;
    uint32_t InitializeContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                               const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                               uint64_t* o_pnBufferLength) override;
    uint32_t AcceptContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                           const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                           uint64_t* o_pnBufferLength, bool i_bWantLogonInformation,
                           Parameters& o_logonInformation) override;
    SSOSessionPtr CreateSession(const ParasSeq* i_pLoginParameters) override;
    SSOCredentialsPtr CreateCredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                        uint32_t i_nCredentialType) override;
    uint8_t* AllocateBuffer(uint64_t i_nSize) override;
    void FreeBuffer(uint8_t* i_pvBuffer) override;

    // The server's principal from the settings, for renewals. Throws SSOException when there is none.
    SWCharString GetSPN() const;

    // What is done about the channel bindings of clients.
    ChannelRule GetChannelRule() const;

    uint64_t GetMaxTokenSize() const noexcept { return m_nMaxTokenSize; }

private:
    uint8_t* AllocateOutput(const char* i_pszOutOfMemory);
    // Puts the token in place of what is in the block, or in place of the block when it does not fit.
    void Replace(const std::vector<uint8_t>& i_token, uint8_t** io_ppvBuffer, uint64_t* io_pnBufferLength);
    // Throws SSOException when the settings require a directory's word on the user, and there is none.
    void CheckLogonInformation(const SSOSessionPtr& i_pSession) const;

    TokenBlocks m_tokenBlocks;
    uint64_t m_nMaxTokenSize = 0;  // of every output buffer, in bytes
    Parameters m_requiredGlobalParameters;
    Parameters m_globalParameters S_GUARDED_BY(m_lock);
    ChannelRule m_channelRule S_GUARDED_BY(m_lock);
    bool m_bRequireLogonInformation S_GUARDED_BY(m_lock) = false;
};

}  // namespace morwen
