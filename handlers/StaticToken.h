// An established security context that has outlived its login.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/text/SWCharString.h"
#include "harrow/time/SDateTime.h"

namespace morwen {

using Harrowlib201::SDateTime;
using Harrowlib201::STimeSpan;
using Harrowlib201::SWCharString;

class ActingThreads;
class SSOHandler;
class StaticToken;

// Decides whether a renewal that is due may be tried now.
class RenewalGate {
public:
    virtual bool MayRenew(StaticToken& i_token) = 0;

protected:
    RenewalGate() = default;
    RenewalGate(const RenewalGate&) = default;
    RenewalGate& operator=(const RenewalGate&) = default;
    ~RenewalGate() = default;
};

// Shared by the context cache and whoever works with it at the moment. Failures are SSOExceptions; the questions about
// time, and the renewal, never throw.
class StaticToken : public Harrowlib201::CRefCount {
public:
    // The order of the operations is part of the interface.
    virtual void Impersonate() = 0;  // the calling thread runs as the token's user, and through no other token any more
    virtual void Revert() = 0;       // the calling thread is itself, through whichever token it was the user
    virtual bool Expired(SDateTime i_now) = 0;
    virtual bool RenegotiateImpl() = 0;  // takes a fresh context for the same user over; false, or throws, if it cannot
    virtual STimeSpan GetTimeToExpiry(SDateTime i_now) = 0;
    virtual STimeSpan GetLifetime() = 0;  // from the last negotiation to the expiry
    virtual SWCharString GetAuthority();  // who is asked for a renewal: the user's realm; empty when nobody can tell

    // By its context or by the settings of its handler.
    bool IsExpired(SDateTime i_now);
    // Counted from the login; a renewal does not prolong it.
    bool ExpiredByConfiguration(SDateTime i_now);
    // Renews the context when it nears its end, the settings allow it and so does the gate. False when it was not
    // renewed; the token is then as it was.
    bool Renegotiate(SDateTime i_now, RenewalGate* i_pGate = nullptr);

    const SWCharString& GetType() const noexcept { return m_ssType; }
    uint16_t GetImpersonationCount() const noexcept { return m_nImpersonationCount.load(); }

    // Around each use of the token by way of the cache (TokenAtWork).
    void BeginWork() noexcept { m_nAtWork.fetch_add(1); }
    void EndWork() noexcept {
        if (m_nAtWork.fetch_sub(1) == 1) {
            m_nAtWork.notify_all();
        }
    }
    bool IsAtWork() const noexcept { return m_nAtWork.load() != 0; }
    // Whether one thread more may act through it: beyond the count's range it could be removed while one does.
    bool MayBeCounted() const noexcept { return GetImpersonationCount() != std::numeric_limits<uint16_t>::max(); }

    static constexpr SDateTime kUnknown{std::numeric_limits<int64_t>::min()};
    // Until then Expired says no, for all that is known now; a renewal may change it. kUnknown: it must be asked.
    SDateTime GetKnownExpiry() const noexcept { return m_expiry.get(); }

    // Whether somebody works with it or acts as its user. No lock is waited for.
    bool IsInUse() const noexcept { return IsAtWork() || GetImpersonationCount() != 0; }
    // Until nobody works with it any more.
    void AwaitIdle() const noexcept;

protected:
    // The handler is the one that made it, whose settings it follows; never null.
    StaticToken(const SWCharString& i_ssType, const Harrowlib201::CSmartRefCountPtr<SSOHandler>& i_pHandler);
    ~StaticToken() override;

    const SWCharString m_ssType;
    const Harrowlib201::CSmartRefCountPtr<SSOHandler> m_pHandler;
    const SDateTime m_created;

    // An instant that one thread sets and others read. Lookups and the clean-up ask about times, and wait for nobody.
    class Instant {
    public:
        explicit Instant(SDateTime i_when) noexcept : m_when(i_when) {}

        SDateTime get() const noexcept { return m_when.load(std::memory_order_relaxed); }
        void Set(SDateTime i_when) noexcept { m_when.store(i_when, std::memory_order_relaxed); }

    private:
        std::atomic<SDateTime> m_when;
    };

    // What lookups read stands together, near the beginning.
    Instant m_expiry{kUnknown};  // of the context, for derived tokens whose contexts have one
    Instant m_lastNegotiated;

private:
    friend ActingThreads;

    std::atomic<uint16_t> m_nImpersonationCount{0};  // threads that act through it
    std::atomic<uint32_t> m_nAtWork{0};

    bool NeedsRenewal(SDateTime i_now);

protected:
    // Held while the context is worked with, which may take as long as the system's call does.
    mutable Harrowlib201::CRWLock m_lock;
};

using StaticTokenPtr = Harrowlib201::CSmartRefCountPtr<StaticToken>;

}  // namespace morwen
