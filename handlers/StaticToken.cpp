#include "handlers/StaticToken.h"

#include "errors/SSOException.h"
#include "handlers/RenewalRule.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "harrow/log/STrace.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

SSOHandlerPtr HandlerOf(const SWCharString& i_ssType) {
    return SSOHandlerFactory::instance()->GetHandler(i_ssType);
}

}  // namespace

SWCharString StaticToken::GetAuthority() {
    return {};
}

void StaticToken::AwaitIdle() const noexcept {
    for (uint32_t nAtWork = m_nAtWork.load(); nAtWork != 0; nAtWork = m_nAtWork.load()) {
        m_nAtWork.wait(nAtWork);
    }
}

SDateTime StaticToken::GetLastNegotiated() const {
    const CSmartReadLocker locker(m_lock);
    return m_lastNegotiated;
}

bool StaticToken::IsExpired(SDateTime i_now) {
    return Expired(i_now) || ExpiredByConfiguration(i_now);
}

bool StaticToken::ExpiredByConfiguration(SDateTime i_now) {
    STimeSpan expiry;
    try {
        expiry = HandlerOf(m_ssType)->GetCacheExpiry();
    } catch (const SSOException&) {
        return true;  // settings that cannot be read are no permission to go on
    }
    if (expiry.isZero()) {
        return false;
    }
    if (m_created + expiry < i_now) {
        S_TRACE("ssoplugin: StaticToken::ExpiredByConfiguration() -- This token has expired.");
        return true;
    }
    return false;
}

bool StaticToken::NeedsRenewal(SDateTime i_now) {
    const SSOHandlerPtr pHandler = HandlerOf(m_ssType);
    return RenewalRule{.m_bAllowed = pHandler->AreRenewalsAllowed(),
                       .m_cacheExpiry = pHandler->GetCacheExpiry(),
                       .m_nThresholdPercentage = pHandler->GetRenewalThreshold(),
                       .m_lifetime = GetLifetime(),
                       .m_age = i_now - m_created,
                       .m_timeToExpiry = GetTimeToExpiry(i_now)}
        .IsDue();
}

bool StaticToken::Renegotiate(SDateTime i_now, RenewalGate* i_pGate) {
    try {
        if (!NeedsRenewal(i_now) || (i_pGate != nullptr && !i_pGate->MayRenew(*this))) {
            return false;
        }
        S_TRACE("ssoplugin: SSPIStaticToken::Renegotiate() -- Renegotiating token.");
        const bool bRenewed = RenegotiateImpl();
        if (bRenewed) {
            const CSmartWriteLocker locker(m_lock);
            m_lastNegotiated = i_now;
        }
        return bRenewed;
    } catch (const SSOException&) {
        S_TRACE("ssoplugin: SSPIStaticToken::Renegotiate() -- Failed to renegotiate security context.");
    } catch (...) {
        S_TRACE("ssoplugin: StaticToken::Renegotiate() -- Caught an exception!");
    }
    return false;
}

}  // namespace morwen
