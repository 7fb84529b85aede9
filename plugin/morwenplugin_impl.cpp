// The 21 exports: each brings the host's arguments into the library's own types and calls the core. Nothing thrown
// passes.
#include <new>
#include <type_traits>

#include "errors/HostText.h"
#include "harrow/log/STrace.h"
#include "harrow/threads/JTCThread.h"
#include "harrow/threads/Uncancellable.h"
#include "morwen/morwenplugin.h"
#include "plugin/SSOImpl.h"

using namespace morwen;
using namespace Harrowlib201;

namespace {

// How many exports the thread is in: more than one where a sink calls the library.
constinit thread_local unsigned t_nInside = 0;

class Inside {
public:
    Inside() noexcept { ++t_nInside; }
    ~Inside() { --t_nInside; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

// A start or an end by the host's sink would wait for the very call that the sink was called from.
bool IsInsideSink() noexcept {
    return t_nInside > 1 || JTCThread::isOwn();
}

// The singleton, the call, and the end of every exception. An operation without a result counts as success.
template <class Operation>
uint32_t Fenced(const char* i_pszUnexpected, Operation& i_operation, const char* i_pszNoCore) noexcept {
    try {
        const JTCHandleT<SSOImpl>& pImpl = SSOImpl::instance();
        S_ASSERT_TEXT(pImpl, i_pszNoCore);
        if (!pImpl) {
            return SSO_ERROR;
        }
        try {
            if constexpr (std::is_void_v<decltype(i_operation(*pImpl))>) {
                i_operation(*pImpl);
                return SSO_OK;
            } else {
                return i_operation(*pImpl);
            }
        } catch (const std::bad_alloc&) {  // of the arguments' copies; the core's own ends in the core
            return pImpl->MemoryRanOut();
        }
    } catch (...) {
        S_FAIL(i_pszUnexpected);
        return SSO_ERROR;
    }
}

// The fence of every export. A cancellation of the thread waits outside it: what it unwinds then is the host's.
template <class Operation>
uint32_t Export(const char* i_pszUnexpected, Operation i_operation, const char* i_pszNoCore = "pImpl") {
    const Uncancellable uncancellable;
    const Inside inside;
    return Fenced(i_pszUnexpected, i_operation, i_pszNoCore);
}

// A host's keys are seldom near the processor; this one comes while the call is let in. Any pointer will do.
void BringNear(const SSOChar* i_pszKey) noexcept {
    __builtin_prefetch(i_pszKey);
}

uint32_t InitializePlugin(SSOImpl& i_core) {
    if (IsInsideSink()) {
        return SSO_ERROR;
    }
    if (!i_core.Initialize()) {
        S_TRACE("InitializePlugin() -- SSOImpl::Initialize() failed!");
        return SSO_ERROR;
    }
    return SSO_OK;
}

uint32_t UnInitializePlugin(SSOImpl& i_core) {
    if (IsInsideSink()) {
        return SSO_ERROR;
    }
    i_core.Shutdown();
    return SSO_OK;
}

}  // namespace

uint32_t SSOInitPackage(void) {
    return Export("InitializePlugin() -- Unexpected exception!", InitializePlugin, "pImplementation != NULL");
}

uint32_t SSOTermPackage(void) {
    return Export("UnInitializePlugin() -- Unexpected Exception!", UnInitializePlugin, "pImplementation != NULL");
}

uint32_t SSOInitProvider(const SSOChar* i_pszType, const ParasSeq* i_pParameters) {
    return Export("ssoplugin: InitSSOProvider() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.InitSSOProvider(FromHost(i_pszType), i_pParameters); });
}

uint32_t SSOGetRequiredParameters(const SSOChar* i_pszType, ParasSeq** o_ppParameters) {
    // The text is that of SSOInitProvider, as administrators know it.
    return Export("ssoplugin: InitSSOProvider() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.GetRequiredParameters(FromHost(i_pszType), o_ppParameters); });
}

uint32_t SSOStartLogin(const SSOChar* i_pszUser, const SSOChar* i_pszPassword, const SSOChar* i_pszType,
                       const ParasSeq* i_pParameters, SSOChar** o_ppszSessionKey, void** o_ppvBuffer,
                       SSOLength* o_pnBufferLength) {
    return Export("ssoplugin: StartLogin() -- Unexpected exception!", [&](SSOImpl& i_core) {
        return i_core.SSOStartLogin(FromHost(i_pszUser), FromHost(i_pszPassword), FromHost(i_pszType), i_pParameters,
                                    o_ppvBuffer, o_pnBufferLength, o_ppszSessionKey);
    });
}

uint32_t SSOContinueLogin(const SSOChar* i_pszSessionKey, const void* i_pvBuffer, SSOLength i_nBufferLength,
                          void** o_ppvBuffer, SSOLength* o_pnBufferLength) {
    return Export("ssoplugin: ContinueLogin() -- Unexpected exception!", [&](SSOImpl& i_core) {
        return i_core.SSOContinueLogin(i_pvBuffer, i_nBufferLength, i_pszSessionKey, o_ppvBuffer, o_pnBufferLength);
    });
}

uint32_t SSOAcceptLogin(const SSOChar* i_pszType, const SSOChar* i_pszSessionKey, const void* i_pvBuffer,
                        SSOLength i_nBufferLength, void** o_ppvBuffer, SSOLength* o_pnBufferLength,
                        ParasSeq** o_ppLogonInformation, SSOChar** o_ppszSessionKey) {
    return Export("ssoplugin: AcceptLogin() -- Unexpected exception!", [&](SSOImpl& i_core) {
        return i_core.SSOAcceptLogin(FromHost(i_pszType), FromHost(i_pszSessionKey), i_pvBuffer, i_nBufferLength,
                                     o_ppvBuffer, o_pnBufferLength, o_ppLogonInformation, o_ppszSessionKey);
    });
}

uint32_t SSOImpersonate(const SSOChar* i_pszContextKey) {
    BringNear(i_pszContextKey);
    return Export("ssoplugin: Impersonate() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.Impersonate(i_pszContextKey); });
}

uint32_t SSORevert(const SSOChar* i_pszContextKey) {
    BringNear(i_pszContextKey);
    return Export("ssoplugin: Revert() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.Revert(i_pszContextKey); });
}

uint32_t SSOAssociateSecurityContext(const SSOChar* i_pszContextKey, const SSOChar* i_pszNewKey) {
    return Export("ssoplugin: AssociateSecurityContext() -- Unexpected Exception!", [&](SSOImpl& i_core) {
        return i_core.AssociateSecurityContext(i_pszContextKey, FromHost(i_pszNewKey));
    });
}

uint32_t SSOAcquireCurrentSecurityContext(const SSOChar* i_pszType, const ParasSeq* i_pParameters,
                                          SSOChar** o_ppszContextKey) {
    return Export("ssoplugin: AcquireCurrentSecurityContext() -- Unexpected Exception!", [&](SSOImpl& i_core) {
        return i_core.AcquireCurrentSecurityContext(FromHost(i_pszType), i_pParameters, o_ppszContextKey);
    });
}

uint32_t SSOReleaseSecurityContext(const SSOChar* i_pszContextKey) {
    BringNear(i_pszContextKey);
    return Export("ssoplugin: ReleaseSecurityContext() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.ReleaseSecurityContext(i_pszContextKey); });
}

uint32_t SSOReleaseAllSecurityContexts(void) {
    return Export("ssoplugin: ReleaseAllSecurityContexts() -- Unexpected Exception!",
                  [](SSOImpl& i_core) { return i_core.ReleaseAllSecurityContexts(); });
}

uint32_t SSOFreeBuffer(void* i_pvBuffer) {
    return Export("ssoplugin: SSOFreeBuffer() -- Unexpected exception!",
                  [&](SSOImpl& i_core) { i_core.FreeBuffer(i_pvBuffer); });
}

uint32_t SSOFreeString(SSOChar* i_pszText) {
    const Uncancellable uncancellable;
    FreeHostText(i_pszText);
    return SSO_OK;
}

uint32_t SSOFreeParameters(ParasSeq* i_pParameters) {
    return Export("ssoplugin: SSOFreeParameters() -- Unknown Exception!",
                  [&](SSOImpl& i_core) { i_core.FreeParameters(i_pParameters); });
}

uint32_t SSOLookupSecurityContext(const SSOChar* i_pszContextKey) {
    BringNear(i_pszContextKey);
    return Export("ssoplugin: LookupSecurityContext() -- Unexpected Exception!",
                  [&](SSOImpl& i_core) { return i_core.LookupSecurityContext(i_pszContextKey); });
}

uint32_t SSOGetError(uint32_t i_nErrorCode, SSOError** o_ppError) {
    return Export("ssoplugin: SSOGetError() -- Unknown Exception!",
                  [&](SSOImpl& i_core) { return i_core.GetError(i_nErrorCode, o_ppError); });
}

uint32_t SSOFreeError(SSOError* i_pError) {
    return Export("ssoplugin: SSOFreeError() -- Unknown Exception!",
                  [&](SSOImpl& i_core) { i_core.FreeError(i_pError); });
}

uint32_t SSOGetMessageContent(uint32_t i_nMessageId, SSOChar** o_ppszMessage) {
    return Export("ssoplugin: SSOGetMessageContent() -- Unknown Exception!",
                  [&](SSOImpl& i_core) { return i_core.GetErrorMessage(i_nMessageId, o_ppszMessage); });
}

// Never offered, and no host may come to rely on it.
uint32_t SSOReleaseAllProviderSecContexts(void*) {
    return SSO_ERROR;
}
