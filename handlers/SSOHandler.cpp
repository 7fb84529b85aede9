#include "handlers/SSOHandler.h"

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"

namespace morwen {

using Harrowlib201::CSmartReadLocker;

uint32_t SSOHandler::AcquireCurrentContext(const SSOSessionPtr&, const Parameters&) {
    ThrowNotSupported();
}

bool SSOHandler::IsCachingOn() const {
    const CSmartReadLocker locker(m_lock);
    return m_bCacheContexts;
}

STimeSpan SSOHandler::GetCacheExpiry() const {
    const CSmartReadLocker locker(m_lock);
    return m_cacheExpiry;
}

bool SSOHandler::AreRenewalsAllowed() const {
    const CSmartReadLocker locker(m_lock);
    return m_bRenewalsAllowed;
}

uint8_t SSOHandler::GetRenewalThreshold() const {
    const CSmartReadLocker locker(m_lock);
    return m_nRenewalThreshold;
}

void SSOHandler::ThrowNotSupported() {
    Harrowlib201::SetReason("the provider type does not offer this operation");
    throw SSOException(SSO_NOT_SUPPORTED);
}

}  // namespace morwen
