#include "handlers/threadtoken/ThreadTokenHandler.h"

#include <cstdint>
#include <new>

#include "errors/SSOException.h"
#include "handlers/ActingLevel.h"
#include "handlers/SystemErrorText.h"
#include "handlers/SystemFailure.h"
#include "handlers/threadtoken/ThreadTokenSession.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {
constexpr STimeSpan kOneDay(86400000);
constexpr STimeSpan kEndsAtOnce(-1000);
}  // namespace

ThreadTokenHandler::ThreadTokenHandler() {
    const CSmartWriteLocker locker(m_lock);
    m_cacheExpiry = kOneDay;
}

void ThreadTokenHandler::InitHandler(const Parameters& i_globalParameters) {
    int64_t nSeconds = 0;
    bool bPresent = false;
    try {
        bPresent = i_globalParameters.GetParameter(u"SSPI_CTXT_CACHE_EXPIRY", nSeconds);
    } catch (const SSOException&) {
        S_FAIL("ssoplugin: ThreadTokenHandler::InitHandler() -- Type mismatch getting the cache expiry time.");
        throw;
    }
    if (bPresent) {
        const CSmartWriteLocker locker(m_lock);
        // Multiplied as it stands, a huge value could come out as 0, which means "never".
        constexpr int64_t kTooLarge = INT64_MAX / 1000;
        const bool bFits = nSeconds < kTooLarge && nSeconds > -kTooLarge;
        m_cacheExpiry = bFits ? STimeSpan(nSeconds * 1000) : kEndsAtOnce;
        S_TRACE("ssoplugin: ThreadTokenHandler::InitHandler() -- Setting cache timeout to %1", nSeconds);
    }
}

void ThreadTokenHandler::Reserved(void*) {}

uint32_t ThreadTokenHandler::InitializeContext(const SSOCredentialsPtr&, const SSOSessionPtr&, const uint8_t*, uint64_t,
                                               uint8_t**, uint64_t*) {
    ThrowNotSupported();
}

uint32_t ThreadTokenHandler::AcceptContext(const SSOCredentialsPtr&, const SSOSessionPtr&, const uint8_t*, uint64_t,
                                           uint8_t**, uint64_t*, bool, Parameters&) {
    ThrowNotSupported();
}

uint32_t ThreadTokenHandler::AcquireCurrentContext(const SSOSessionPtr& i_pSession, const Parameters&) {
    S_ASSERT(i_pSession);
    if (!i_pSession) {
        throw SSOException(SSO_ERROR);
    }
    const auto pSession = CountedCast<ThreadTokenSession>(i_pSession);
    if (!pSession) {
        S_FAIL("ssoplugin: ThreadTokenHandler::AcquireCurrentContext() -- Wrong type of SSOSessionPtr passed in.");
        throw SSOException(SSO_ERROR);
    }
    constexpr DWORD kAccess = TOKEN_QUERY | TOKEN_IMPERSONATE | TOKEN_DUPLICATE;
    TokenCalls& tokens = Platform::Tokens();
    KernelCalls& kernel = Platform::Kernel();
    HANDLE hToken = nullptr;
    if (tokens.OpenThreadToken(kernel.GetCurrentThread(), kAccess, TRUE, &hToken)) {
        pSession->SetToken(hToken);
        if (!IsOfActingLevel(hToken)) {
            pSession->SetToken(nullptr);
            throw SSOException(SSO_ERROR, kMsgContextUnusable);
        }
        return SSO_OK;
    }
    // Who has a token that does not open is somebody, and not the service: only without one it is the process's.
    bool bOpened = false;
    if (kernel.GetLastError() == ERROR_NO_TOKEN) {
        S_TRACE(
            "ssoplugin: ThreadTokenHandler::AcquireCurrentContext() -- OpenThreadToken() failed.  Trying process "
            "token.");
        bOpened = tokens.OpenProcessToken(kernel.GetCurrentProcess(), kAccess, &hToken) != FALSE;
    }
    if (!bOpened) {
        const DWORD nError = kernel.GetLastError();
        S_REASON(
            "ssoplugin: ThreadTokenHandler::AcquireCurrentSecurityContext() -- Could not get token for thread nor "
            "process: %1",
            GetLastErrorText());
        ThrowSystemFailure(nError, kMsgContextUnusable);
    }
    pSession->SetToken(hToken);
    return SSO_OK;
}

SSOSessionPtr ThreadTokenHandler::CreateSession(const ParasSeq* i_pLoginParameters) {
    S_TRACE("ssoplugin: ThreadTokenHandler::CreateSession() -- Creating a new session.");
    try {
        return MakeCounted<ThreadTokenSession>(i_pLoginParameters, SSOHandlerPtr(this));
    } catch (const std::bad_alloc&) {
        S_FAIL("ssoplugin: ThreadTokenHandler::CreateSession() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    } catch (...) {
        S_FAIL("ssoplugin: ThreadTokenHandler::CreateSession() -- Creation failed.");
        throw;
    }
}

SSOCredentialsPtr ThreadTokenHandler::CreateCredentials(const SWCharString&, const SWCharString&, uint32_t) {
    ThrowNotSupported();
}

uint8_t* ThreadTokenHandler::AllocateBuffer(uint64_t) {
    ThrowNotSupported();
}

void ThreadTokenHandler::FreeBuffer(uint8_t*) {
    ThrowNotSupported();
}

}  // namespace morwen
