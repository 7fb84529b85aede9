#include "sessions/SessionManager.h"

#include <algorithm>
#include <new>
#include <utility>

#include "errors/SSOException.h"
#include "handlers/HandlerToken.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "harrow/log/STrace.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

// For the host. The handler's lengths come from 32-bit ones.
void HandOver(HandlerToken& io_token, const LoginStep& i_step) {
    const auto nLength = static_cast<SSOLength>(io_token.m_nLength);
    SessionManager::CopyToExternalBuffer(io_token.m_pvToken, i_step.m_ppvBuffer, nLength);
    *i_step.m_pnBufferLength = nLength;
    io_token.GiveBack();
}

// One step's hold on a session: a host that calls twice at once with one key is refused the second time, so that no
// context is completed twice or handed to two tokens. A session that the step made is taken out of the cache again
// unless the step succeeds: its key never reached the host, so nobody could ever end it, and a stranger's bad tokens
// would fill the memory. A session that was there before stays, because the host holds its key and may try again with a
// better token.
class SessionStep {
public:
    SessionStep(SessionCache& i_cache, const SSOSessionPtr& i_pSession, bool i_bNew)
        : m_cache(i_cache), m_pSession(i_pSession), m_bRelease(i_bNew) {
        if (!i_bNew && !m_pSession->TryBegin()) {
            S_REASON("ssoplugin: SessionStep::SessionStep() -- Another call is at work on the session.");
            throw SSOException(SSO_ERROR);
        }
    }
    // The session of a login that has ended stays closed to a call that found it before.
    ~SessionStep() {
        if (m_bRelease) {
            m_cache.ReleaseSession(m_pSession->GetIdentifier());
        } else if (!m_bEnded) {
            m_pSession->End();
        }
    }
    SessionStep(const SessionStep&) = delete;
    SessionStep& operator=(const SessionStep&) = delete;

    void Keep() noexcept { m_bRelease = false; }
    void EndLogin() {
        m_bEnded = true;
        m_bRelease = false;
        m_cache.ReleaseSession(m_pSession->GetIdentifier());
    }

private:
    SessionCache& m_cache;
    const SSOSessionPtr m_pSession;
    bool m_bRelease;
    bool m_bEnded = false;
};

void ClearOutputs(const LoginStep& i_step) noexcept {
    SessionManager::FreeExternalBuffer(*i_step.m_ppvBuffer);
    *i_step.m_ppvBuffer = nullptr;
    *i_step.m_pnBufferLength = 0;
}

void RequireStatus(uint32_t i_nStatus, const char* i_pszFailed) {
    if (i_nStatus >= SSO_ERROR) {
        S_FAIL(i_pszFailed);
        throw SSOException(i_nStatus, kMsgGeneral);
    }
}

}  // namespace

SessionManager::SessionManager(const CSmartRefCountPtr<SecContextCache>& i_pContextCache)
    : m_pContextCache(i_pContextCache) {}

SSOHandlerPtr SessionManager::FindHandler(const SWCharString& i_ssType, const char* i_pszNoHandler) {
    SSOHandlerPtr pHandler = SSOHandlerFactory::instance()->GetHandler(i_ssType);
    S_ASSERT(pHandler);
    if (!pHandler) {
        S_TRACE(i_pszNoHandler, i_ssType);
        throw SSOException(SSO_ERROR, kMsgUnknownProvider, {i_ssType});
    }
    return pHandler;
}

SSOSessionPtr SessionManager::FindSession(const SWCharString& i_ssSessionKey) {
    return i_ssSessionKey.isEmpty() ? nullptr
                                    : m_sessionCache.GetSession(SSOSession::SessionIdentifier(i_ssSessionKey));
}

uint32_t SessionManager::GenerateClientContext(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                               const SWCharString& i_ssType, const ParasSeq* i_pParameters,
                                               LoginStep& io_step) {
    SWCharString ssType = i_ssType;
    // A key must be a number even where it is not looked up.
    const bool bNewLogin = !ssType.isEmpty();
    SSOSessionPtr pSession;
    if (!io_step.m_ssSessionKey.isEmpty() && bNewLogin) {
        static_cast<void>(SSOSession::SessionIdentifier(io_step.m_ssSessionKey));
    }
    if (!bNewLogin) {
        pSession = FindSession(io_step.m_ssSessionKey);
        if (!pSession) {
            S_REASON(
                "ssoplugin: SessionManager::GenerateClientContext() -- Could not determine SSOProvider: No cached "
                "session!");
            throw SSOException(SSO_ERROR);
        }
        ssType = pSession->GetType();
        S_TRACE("ssoplugin: SessionManager::GenerateClientContext() -- SSO Provider from cache is %1", ssType);
    }
    const SSOHandlerPtr pHandler =
        FindHandler(ssType, "ssoplugin: SessionManager::GenerateClientContext() -- NULL handler for session type %1");
    if (!pSession) {
        pSession = m_sessionCache.CreateSession(pHandler, i_pParameters);
    }
    S_ASSERT(pSession);
    if (!pSession) {
        S_TRACE("ssoplugin: SessionManager::GenerateClientContext() -- NULL Session object.");
        throw SSOException(SSO_ERROR);
    }
    SessionStep step(m_sessionCache, pSession, bNewLogin);
    const SSOCredentialsPtr pCredentials = pHandler->CreateCredentials(i_ssUser, i_ssPassword, SSOHandler::kOutbound);
    if (!pCredentials) {
        S_FAIL("ssoplugin: SessionManager::GenerateClientContext() -- Credentials object is NULL!");
        throw SSOException(SSO_ERROR);
    }
    // Before the step, which cannot be undone: a login that is complete must not fail for lack of memory.
    SWCharString ssDone = u"DUMMY_KEY"_ss;
    SWCharString ssGoesOn = pSession->GetIdentifier().ToString();
    uint32_t nStatus = SSO_ERROR;
    try {
        HandlerToken token(*pHandler);
        nStatus = pHandler->InitializeContext(pCredentials, pSession, static_cast<const uint8_t*>(io_step.m_pvToken),
                                              io_step.m_nTokenLength, &token.m_pvToken, &token.m_nLength);
        RequireStatus(nStatus, "ssoplugin: SessionManager::GenerateClientContext() failed.");
        HandOver(token, io_step);
        io_step.m_ssKey = std::move(nStatus != SSO_OK ? ssGoesOn : ssDone);
    } catch (...) {
        ClearOutputs(io_step);
        throw;
    }
    if (nStatus == SSO_OK) {
        step.EndLogin();
    }
    step.Keep();
    return nStatus;
}

uint32_t SessionManager::GenerateServerContext(const SWCharString& i_ssType, LoginStep& io_step,
                                               bool i_bWantLogonInformation, Parameters& o_logonInformation) {
    const SSOHandlerPtr pHandler =
        FindHandler(i_ssType, "ssoplugin: SessionManager::GenerateServerContext() -- NULL handler for session type %1");
    SSOSessionPtr pSession = FindSession(io_step.m_ssSessionKey);
    const bool bNewLogin = !pSession;
    if (bNewLogin) {
        pSession = m_sessionCache.CreateSession(pHandler, nullptr);
    }
    SessionStep step(m_sessionCache, pSession, bNewLogin);
    const SSOCredentialsPtr pCredentials = pHandler->CreateCredentials({}, {}, SSOHandler::kInbound);
    uint32_t nStatus = SSO_ERROR;
    try {
        HandlerToken token(*pHandler);
        nStatus = pHandler->AcceptContext(pCredentials, pSession, static_cast<const uint8_t*>(io_step.m_pvToken),
                                          io_step.m_nTokenLength, &token.m_pvToken, &token.m_nLength,
                                          i_bWantLogonInformation, o_logonInformation);
        RequireStatus(nStatus, "ssoplugin: SessionManager::GenerateServerContext() failed.");
        HandOver(token, io_step);
        if (nStatus == SSO_CONTINUE) {
            io_step.m_ssKey = pSession->GetIdentifier().ToString();
        } else if (nStatus == SSO_OK || nStatus == SSO_ACCEPTED) {
            // First: should the context be lost on its way to the cache, nobody must find a session without one.
            step.EndLogin();
            io_step.m_ssKey = pHandler->IsCachingOn() ? KeepContext(pSession) : u"DUMMY_KEY__CACHING_IS_OFF"_ss;
            nStatus = SSO_ACCEPTED;
        } else {
            S_TRACE("ssoplugin: SessionManager::GenerateServerContext() -- Unexpected result from AcceptLogin: %1",
                    nStatus);
            throw SSOException(SSO_ERROR);
        }
    } catch (...) {
        ClearOutputs(io_step);
        throw;
    }
    step.Keep();
    S_TRACE("ssoplugin: SessionManager::GenerateServerContext() -- returning %1", nStatus);
    return nStatus;
}

void SessionManager::ReleaseSession(const SWCharString& i_ssSessionKey) {
    m_sessionCache.ReleaseSession(SSOSession::SessionIdentifier(i_ssSessionKey));
}

uint32_t SessionManager::AcquireCurrentContext(const SWCharString& i_ssType, const ParasSeq* i_pParameters,
                                               SWCharString& o_ssKey) {
    const SSOHandlerPtr pHandler =
        FindHandler(i_ssType, "ssoplugin: SessionManager::AcquireCurrentContext() -- NULL handler for session type %1");
    if (!pHandler->IsCachingOn()) {
        S_REASON(
            "ssoplugin: SessionManager::AcquireCurrentContext() -- Caching is turned off.  No sense in continuing!");
        throw SSOException(SSO_ERROR);
    }
    const SSOSessionPtr pSession = m_sessionCache.CreateSession(pHandler, nullptr);
    const SessionStep step(m_sessionCache, pSession, true);  // released in every case
    const uint32_t nStatus = pHandler->AcquireCurrentContext(pSession, Parameters(i_pParameters));
    if (nStatus == SSO_OK) {
        o_ssKey = KeepContext(pSession);
    }
    return nStatus;
}

SWCharString SessionManager::KeepContext(const SSOSessionPtr& i_pSession) {
    SWCharString ssKey;
    return GetContextCache().Insert(ssKey, i_pSession->GetStaticToken());
}

SecContextCache& SessionManager::GetContextCache() const {
    S_ASSERT(m_pContextCache);
    if (!m_pContextCache) {
        throw SSOException(SSO_ERROR);
    }
    return *m_pContextCache;
}

uint8_t* SessionManager::AllocateExternalBuffer(SSOLength i_Size) {
    S_ASSERT(i_Size > 0);
    if (i_Size == 0) {
        throw SSOException(SSO_ERROR);
    }
    auto* pbBuffer = new (std::nothrow) uint8_t[i_Size];
    if (pbBuffer == nullptr) {
        S_ASSERT_MSG(pbBuffer, "ssoplugin: SessionManager::AllocateExternalBuffer() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
    return pbBuffer;
}

void SessionManager::CopyToExternalBuffer(const uint8_t* i_pbSource, void** o_ppbExternalBuffer, SSOLength i_nSize) {
    S_ASSERT(o_ppbExternalBuffer);
    if (o_ppbExternalBuffer == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    S_ASSERT_TEXT(*o_ppbExternalBuffer == nullptr, "*o_ppbExternalBuffer == NULL");
    *o_ppbExternalBuffer = nullptr;
    if (i_pbSource == nullptr || i_nSize == 0) {
        S_TRACE("ssoplugin: SessionManager::CopyToExternalBuffer() -- Zero-length source specified.");
        return;
    }
    uint8_t* pbBuffer = AllocateExternalBuffer(i_nSize);
    std::copy_n(i_pbSource, i_nSize, pbBuffer);
    *o_ppbExternalBuffer = pbBuffer;
}

void SessionManager::FreeExternalBuffer(void* i_pvBuffer) noexcept {
    delete[] static_cast<uint8_t*>(i_pvBuffer);
}

}  // namespace morwen
