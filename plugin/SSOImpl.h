// The core: the one object that owns every component and stands behind every export.
#pragma once

#include <memory>

#include "cache/ContextManager.h"
#include "errors/ErrorManager.h"
#include "harrow/lifetime/LibraryHold.h"
#include "harrow/locks/CGate.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/threads/JTC.h"
#include "morwen/morwenplugin.h"
#include "sessions/SessionManager.h"

namespace morwen {

using Harrowlib201::JTCHandleT;

// Operations return a result code and leave an error record for the calling thread, of want of memory too; any other
// exception passes through to the export. They run side by side, and never beside the first start or the last end.
class SSOImpl : public Harrowlib201::CRefCount {
public:
    // The one object, made on the first call and never destroyed; empty when it could not be made.
    static const JTCHandleT<SSOImpl>& instance();

    SSOImpl() = default;

    // Both wait for nobody when they only count. A first start waits for an end under way; operations are refused until
    // it is done. From the moment of the last end operations are refused, and it waits for those already inside: it
    // must not be called by one of them, nor by a thread that they wait for.
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

    // A key of a context is read where the host has it.
    uint32_t Impersonate(const SSOChar* i_pszKey);
    uint32_t Revert(const SSOChar* i_pszKey);
    uint32_t AssociateSecurityContext(const SSOChar* i_pszKey, const SWCharString& i_ssNewKey);
    uint32_t LookupSecurityContext(const SSOChar* i_pszKey);
    uint32_t ReleaseSecurityContext(const SSOChar* i_pszKey);
    uint32_t ReleaseAllSecurityContexts();
    uint32_t AcquireCurrentSecurityContext(const SWCharString& i_ssType, const ParasSeq* i_pParameters,
                                           SSOChar** o_ppSessionID);

    // What an operation returns when there is no memory for its arguments.
    uint32_t MemoryRanOut();

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

    // The frame of every operation: the way in while the core is initialised, and the turning of an SSOException, or of
    // want of memory, into the thread's error record and its code. Forgets why the thread's call before has failed.
    template <class Operation>
    uint32_t Run(Operation i_operation);
    // The same without forgetting.
    template <class Operation>
    uint32_t Guarded(Operation i_operation);
    // As Run, for an operation on cached contexts.
    template <class Operation>
    uint32_t RunOnContexts(Operation i_operation);
    uint32_t Record(const SSOException& i_exception) noexcept;

    bool CountUp();
    bool CountDown();
    bool Start() S_REQUIRES(m_transition);
    void StartThreadLibrary();
    void CreateComponents();
    void EndComponents();
    void AbandonComponents() noexcept S_REQUIRES(m_transition);
    void ReleaseComponents();

    // Held by the first start and the last end for as long as they take: they wait for each other, nobody else does.
    Harrowlib201::CS_Wrapper m_transition;
    bool m_bAbandoned S_GUARDED_BY(m_transition) = false;  // ended in a fork, with what others had locked
    Harrowlib201::CS_Wrapper m_counting;                   // for the count alone
    int32_t m_nInitRefcount S_GUARDED_BY(m_counting) = 0;  // 0: not initialised
    // Open while the core is initialised. The rest changes only while it is shut and nobody is inside.
    Harrowlib201::CGate m_gate;
    Harrowlib201::LibraryHold m_hold;  // the update thread may be anywhere when a host unloads a started package
    std::unique_ptr<Harrowlib201::JTCInitialize> m_pJtcInit;
    JTCHandleT<SessionManager> m_pSessionManager;
    JTCHandleT<ContextManager> m_pContextManager;
    JTCHandleT<ErrorManager> m_pErrorManager;
};

}  // namespace morwen
