// The core: the one object that owns every component and stands behind every export.
#pragma once

#include <memory>

#include "cache/ContextManager.h"
#include "errors/ErrorManager.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/threads/JTC.h"
#include "morwen/morwenplugin.h"
#include "sessions/SessionManager.h"

namespace morwen {

using Harrowlib201::JTCHandleT;

// Operations return a result code and leave an error record for the calling thread; what is no SSOException passes
// through to the export. Start and end exclude every other operation, which run side by side.
class SSOImpl : public Harrowlib201::CRefCount {
public:
    // The one object, made on the first call; empty when there is no memory for it.
    static JTCHandleT<SSOImpl> instance();

    SSOImpl() = default;

    bool Initialize();
    void Shutdown();

    uint32_t InitSSOProvider(const SWCharString& i_ssType, const ParasSeq* i_pParameters);
    uint32_t GetRequiredParameters(const SWCharString& i_ssType, ParasSeq** o_ppParameters);

    uint32_t SSOStartLogin(const SWCharString& i_ssUser, const SWCharString& i_ssPassword, const SWCharString& i_ssType,
                           const ParasSeq* i_pParameters, void** o_ppvBuffer, SSOLength* o_pnBufferLength,
                           SSOChar** o_ppSessionKey);
    // The key is needed as the host gave it, because a null key is an error.
    uint32_t SSOContinueLogin(const void* i_pvBuffer, SSOLength i_nBufferLength, const SSOChar* i_pSessionKey,
                              void** o_ppvBuffer, SSOLength* o_pnBufferLength);
    uint32_t SSOAcceptLogin(const SWCharString& i_ssType, const SWCharString& i_ssSessionKey, const void* i_pvBuffer,
                            SSOLength i_nBufferLength, void** o_ppvBuffer, SSOLength* o_pnBufferLength,
                            ParasSeq** o_ppLogonInformation, SSOChar** o_ppSessionKey);

    uint32_t Impersonate(const SWCharString& i_ssKey);
    uint32_t Revert(const SWCharString& i_ssKey);
    uint32_t AssociateSecurityContext(const SWCharString& i_ssKey, const SWCharString& i_ssNewKey);
    uint32_t LookupSecurityContext(const SWCharString& i_ssKey);
    uint32_t ReleaseSecurityContext(const SWCharString& i_ssKey);
    uint32_t ReleaseAllSecurityContexts();
    uint32_t AcquireCurrentSecurityContext(const SWCharString& i_ssType, const ParasSeq* i_pParameters,
                                           SSOChar** o_ppSessionID);

    uint32_t GetError(uint32_t i_ErrorCode, SSOError** o_ppError);
    uint32_t GetErrorMessage(uint32_t i_nMessageId, SSOChar** o_ppMessage);
    void FreeError(SSOError* i_pError) noexcept;

    void FreeBuffer(void* i_pvBuffer);
    void FreeParameters(ParasSeq* i_pParameters) noexcept;
    // A copy for the host, null for the empty text. Throws SSOException when memory is short.
    static SSOChar* AllocateString(const SWCharString& i_ssText);
    static void FreeString(SSOChar* i_pszText) noexcept;

private:
    ~SSOImpl() override;

    // The frame of every operation: the core lock for reading, the check that the core is initialised, and the turning
    // of an SSOException into the thread's error record and its code. Forgets why the thread's call before has failed.
    template <class Operation>
    uint32_t Run(Operation i_operation);
    // The same without forgetting.
    template <class Operation>
    uint32_t Guarded(Operation i_operation);
    // As Run, for an operation on cached contexts.
    template <class Operation>
    uint32_t RunOnContexts(Operation i_operation);

    void StartThreadLibrary();
    void CreateComponents();
    void ReleaseComponents();

    std::unique_ptr<Harrowlib201::JTCInitialize> m_pJtcInit;
    Harrowlib201::CRWLock m_lock;  // guards everything here
    int32_t m_nInitRefcount = 0;   // 0: not initialised
    JTCHandleT<SessionManager> m_pSessionManager;
    JTCHandleT<ContextManager> m_pContextManager;
    JTCHandleT<ErrorManager> m_pErrorManager;
};

}  // namespace morwen
