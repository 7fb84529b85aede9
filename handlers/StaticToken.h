// An established security context that has outlived its login.
#pragma once

#include <cstdint>

#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/text/SWCharString.h"
#include "harrow/time/SDateTime.h"

namespace morwen {

using Harrowlib201::SDateTime;
using Harrowlib201::STimeSpan;
using Harrowlib201::SWCharString;

// Shared by the context cache and whoever works with it at the moment. Failures are SSOExceptions; the questions about
// time, and the renewal, never throw.
class StaticToken : public Harrowlib201::CRefCount {
public:
    // The order of the operations is part of the interface.
    virtual void Impersonate() = 0;  // the calling thread runs as the token's user
    virtual void Revert() = 0;       // undoes the last Impersonate
    virtual bool Expired(SDateTime i_now) = 0;
    virtual bool RenegotiateImpl() = 0;  // takes a fresh context for the same user over; false, or throws, if it cannot
    virtual STimeSpan GetTimeToExpiry(SDateTime i_now) = 0;
    virtual STimeSpan GetLifetime() = 0;  // from the last negotiation to the expiry

    // By its context or by the settings of its handler.
    bool IsExpired(SDateTime i_now);
    // Counted from the login; a renewal does not prolong it.
    bool ExpiredByConfiguration(SDateTime i_now);
    // Renews the context when it nears its end and the settings allow it. False when it was not renewed; the token is
    // then as it was.
    bool Renegotiate(SDateTime i_now);

    const SWCharString& GetType() const noexcept { return m_ssType; }
    uint16_t GetImpersonationCount() const;

protected:
    explicit StaticToken(const SWCharString& i_ssType)
        : m_ssType(i_ssType), m_created(SDateTime::GetCurrentDateTime()), m_lastNegotiated(m_created) {}

    SDateTime GetLastNegotiated() const;

    const SWCharString m_ssType;  // of the handler that made it
    const SDateTime m_created;
    mutable Harrowlib201::CRWLock m_lock;  // guards the context of the derived class too
    SDateTime m_lastNegotiated S_GUARDED_BY(m_lock);
    uint16_t m_nImpersonationCount S_GUARDED_BY(m_lock) = 0;  // successful ones not yet reverted

private:
    bool NeedsRenewal(SDateTime i_now);
};

using StaticTokenPtr = Harrowlib201::CSmartRefCountPtr<StaticToken>;

}  // namespace morwen
