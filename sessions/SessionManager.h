// The steps of a login: handler, session, token and key, brought together.
#pragma once

#include "cache/SecContextCache.h"
#include "handlers/SSOHandler.h"
#include "sessions/LoginStep.h"
#include "sessions/SessionCache.h"

namespace morwen {

// May be used by many threads at once, but not by two on the same session key. Failures are SSOExceptions; outputs are
// then null, and nothing that the host could not name is kept.
class SessionManager : public Harrowlib201::CRefCount {
public:
    explicit SessionManager(const Harrowlib201::CSmartRefCountPtr<SecContextCache>& i_pContextCache);

    // One step of a client. An empty type means the type of the session under the key; with a type a new session
    // begins. Returns 1 and the session key, or 0 and "DUMMY_KEY".
    uint32_t GenerateClientContext(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                   const SWCharString& i_ssType, const ParasSeq* i_pParameters, LoginStep& io_step);

    // One step of a server. A key that names no session begins a new one. Returns 1 and the session key, or 2 and the
    // context's key ("DUMMY_KEY__CACHING_IS_OFF" when contexts are not kept).
    uint32_t GenerateServerContext(const SWCharString& i_ssType, LoginStep& io_step, bool i_bWantLogonInformation,
                                   Parameters& o_logonInformation);

    // Lets a login go that has not ended; does nothing when there is none under the key.
    void ReleaseSession(const SWCharString& i_ssSessionKey);

    // Keeps the calling thread's identity as a context. Returns 0 and the context's key.
    uint32_t AcquireCurrentContext(const SWCharString& i_ssType, const ParasSeq* i_pParameters, SWCharString& o_ssKey);

    // A block for the host, which goes back through FreeExternalBuffer.
    static uint8_t* AllocateExternalBuffer(SSOLength i_nSize);
    static void CopyToExternalBuffer(const uint8_t* i_pbSource, void** o_ppbExternalBuffer, SSOLength i_nSize);
    static void FreeExternalBuffer(void* i_pvBuffer) noexcept;

private:
    SSOHandlerPtr FindHandler(const SWCharString& i_ssType, const char* i_pszNoHandler);
    // The session under the key; null when there is none or the key is empty.
    SSOSessionPtr FindSession(const SWCharString& i_ssSessionKey);
    SWCharString KeepContext(const SSOSessionPtr& i_pSession);
    SecContextCache& GetContextCache() const;

    SessionCache m_sessionCache;
    Harrowlib201::CSmartRefCountPtr<SecContextCache> m_pContextCache;
};

}  // namespace morwen
