// Cached contexts and a cache that do what a test tells them.
#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "cache/ContextManager.h"
#include "cache/SecContextUpdateThread.h"
#include "fakes/PlatformTest.h"
#include "handlers/ActingThreads.h"

namespace morwen {

// Lives for a second and is renewed when it is due.
class TestToken : public StaticToken {
public:
    TestToken() : StaticToken(u"SSPI", SSOHandlerFactory::instance()->GetHandler(u"SSPI")) { ++s_nAlive; }

    void Impersonate() override {
        m_onImpersonate();
        ActingThreads::Place().Begin(*this);
    }
    void Revert() override { ActingThreads::End(); }
    bool Expired(SDateTime) override {
        const bool bExpired = m_bExpired;
        if (m_onExpired) {
            std::exchange(m_onExpired, nullptr)();
        }
        return bExpired;
    }
    bool RenegotiateImpl() override {
        ++m_nRenewals;
        m_onRenew();
        return m_bAnswers;
    }
    STimeSpan GetTimeToExpiry(SDateTime) override { return STimeSpan(m_bDue ? 0 : 1000); }
    STimeSpan GetLifetime() override { return STimeSpan(1000); }
    SWCharString GetAuthority() override { return m_ssAuthority; }

    static inline std::atomic<int> s_nAlive = 0;
    bool m_bExpired = false;
    bool m_bDue = false;
    bool m_bAnswers = true;
    SWCharString m_ssAuthority;
    int m_nRenewals = 0;
    std::function<void()> m_onImpersonate = [] {};
    std::function<void()> m_onExpired;  // once, after the answer is fixed
    std::function<void()> m_onRenew = [] {};

private:
    ~TestToken() override { --s_nAlive; }
};

// Its thread is what the test makes, and counts.
class TestCache : public SecContextCache {
public:
    using Thread = Harrowlib201::JTCHandleT<Harrowlib201::TerminatingThread>;
    using Make = std::function<Thread(TestCache&)>;
    explicit TestCache(const Make& i_make) : SecContextCache(0), m_make(i_make) {}

    Thread MakeUpdateThread() override {
        ++m_nMade;
        return m_make(*this);
    }
    Thread MakeRealThread() { return SecContextCache::MakeUpdateThread(); }

    int m_nMade = 0;

private:
    Make m_make;
};

// The update thread's object, for passes without a thread. Stops at its end, because it would object to that.
struct Cleaner {
    explicit Cleaner(SecContextCache* i_pCache)
        : m_pThread(Harrowlib201::MakeCounted<SecContextUpdateThread>(i_pCache)) {}
    ~Cleaner() { m_pThread->stop(); }
    const Harrowlib201::JTCAdoptCurrentThread m_adopted;
    const Harrowlib201::CSmartRefCountPtr<SecContextUpdateThread> m_pThread;
};

}  // namespace morwen
