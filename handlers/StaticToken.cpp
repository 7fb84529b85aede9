#include "handlers/StaticToken.h"

#include "errors/SSOException.h"
#include "handlers/ActingThreads.h"
#include "handlers/RenewalRule.h"
#include "handlers/SSOHandler.h"
#include "harrow/log/STrace.h"

namespace morwen {

using namespace Harrowlib201;

StaticToken::StaticToken(const SWCharString& i_ssType, const SSOHandlerPtr& i_pHandler)
    : m_ssType(i_ssType),
      m_pHandler(i_pHandler),
      m_created(SDateTime::GetCurrentDateTime()),
      m_lastNegotiated(m_created) {}

StaticToken::~StaticToken() {
    ActingThreads::Forget(*this);
}

SWCharString StaticToken::GetAuthority() {
    return {};
}

void StaticToken::AwaitIdle() const noexcept {
    for (uint32_t nAtWork = m_nAtWork.load(); nAtWork != 0; nAtWork = m_nAtWork.load()) {
        m_nAtWork.wait(nAtWork);
    }
}

bool StaticToken::IsExpired(SDateTime i_now) {
    return Expired(i_now) || ExpiredByConfiguration(i_now);
}

bool StaticToken::ExpiredByConfiguration(SDateTime i_now) {
    const STimeSpan expiry = m_pHandler->GetCacheExpiry();
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
    return RenewalRule{.m_bAllowed = m_pHandler->AreRenewalsAllowed(),
                       .m_cacheExpiry = m_pHandler->GetCacheExpiry(),
                       .m_nThresholdPercentage = m_pHandler->GetRenewalThreshold(),
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
            m_lastNegotiated.Set(i_now);
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
