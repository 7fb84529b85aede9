#include "handlers/threadtoken/ThreadTokenHandler.h"

#include "errors/SSOException.h"
#include "harrow/STrace.h"

namespace morwen {

using namespace Harrowlib201;

namespace {
constexpr STimeSpan kOneDay(86400000);
}

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
        // Unsigned, so that a huge value wraps as it does for the other handler.
        m_cacheExpiry = STimeSpan(static_cast<int64_t>(static_cast<uint64_t>(nSeconds) * 1000U));
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

SSOSessionPtr ThreadTokenHandler::CreateSession(const ParasSeq*) {
    ThrowNotSupported();
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
