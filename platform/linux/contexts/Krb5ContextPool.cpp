// libkrb5 contexts, kept and lent.
#include "platform/linux/contexts/Krb5ContextPool.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>
#include <utility>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/contexts/ReplayCache.h"
#include "platform/linux/contexts/ServiceProfile.h"

namespace morwen {

using Harrowlib201::CS_Locker;
using Harrowlib201::CS_Wrapper;

namespace {

constexpr int64_t kLongestLife = 60;  // seconds
constexpr int64_t kLookInterval = 1;  // seconds between two looks at the configuration files
constexpr size_t kMostIdle = 64;      // as many threads may shake hands at once without making a context
constexpr uint64_t kOfNoGeneration = ~uint64_t{0};

int64_t SecondsNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

int64_t TickNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

krb5_error_code MakeContext(krb5_context& o_context) noexcept {
    try {
        return MakeServiceContext(OwnReplayCache(), o_context);
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

struct Idle {
    krb5_context m_context;
    int64_t m_nBornAt;
    const void* m_pvThread;  // who used it last
};

// An address that no other live thread has.
const void* ThisThread() noexcept {
    constinit static thread_local char t_cMark = 0;
    return &t_cMark;
}

// Contexts on their way out: freed when the pool's lock is no longer held, because that takes a lock of the library.
class Discarded {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): clearing the array would cost more than a loan
    Discarded() noexcept {}
    Discarded(const Discarded&) = delete;
    Discarded& operator=(const Discarded&) = delete;
    ~Discarded() {
        for (size_t i = 0; i < m_nCount; ++i) {
            krb5_free_context(m_aContexts[i]);
        }
    }
    void Add(krb5_context i_context) noexcept { m_aContexts[m_nCount++] = i_context; }

private:
    std::array<krb5_context, kMostIdle> m_aContexts;
    size_t m_nCount = 0;
};

// Nothing in it needs a destructor, so it serves threads that still run while the process ends. From then on nothing is
// lent, made or freed any more: libkrb5's own destructors are next, and take away what its calls need.
class Pool {
public:
    // What is lent: an idle context, or none; the generation is that of the contexts to be made now. False at the
    // end. Each success needs a GiveBack.
    bool Take(int64_t i_nNow, krb5_context& o_context, int64_t& o_nBornAt, uint64_t& o_nGeneration) noexcept {
        const uid_t nUser = geteuid();
        const void* const pvThread = ThisThread();
        // By one thread in its turn, and not under the lock: a file system that does not answer holds nobody else up.
        int64_t nNextLook = m_nNextLook.load(std::memory_order_relaxed);
        const bool bLook =
            i_nNow >= nNextLook && m_nNextLook.compare_exchange_strong(nNextLook, i_nNow + kLookInterval);
        const uint64_t nMark = bLook ? ConfigurationMark() : 0;
        Discarded discarded;
        const CS_Locker locker(m_section);
        if (m_bEnding) {
            return false;
        }
        if (nUser != m_nUser) {
            m_nUser = nUser;
            DiscardAll(discarded);
        }
        if (bLook) {
            if (nMark != m_nMark) {
                m_nMark = nMark;
                DiscardAll(discarded);
            }
            DiscardOld(i_nNow, discarded);
        }
        return TakeLocked(pvThread, o_context, o_nBornAt, o_nGeneration);
    }

    // The same, whatever has changed since the context was made.
    bool TakeIdle(krb5_context& o_context, int64_t& o_nBornAt, uint64_t& o_nGeneration) noexcept {
        const void* const pvThread = ThisThread();
        const CS_Locker locker(m_section);
        return TakeLocked(pvThread, o_context, o_nBornAt, o_nGeneration);
    }

    // The context, or null when none could be made, is lent no more.
    void GiveBack(krb5_context i_context, int64_t i_nBornAt, uint64_t i_nGeneration) noexcept {
        if (i_context != nullptr) {
            if (Keep(i_context, i_nBornAt, i_nGeneration)) {
                return;
            }
            krb5_free_context(i_context);
        }
        const CS_Locker locker(m_section);
        --m_nLent;
    }

    // Waits for those who are at work with libkrb5, but not for as long as a KDC may take.
    void End() noexcept {
        constexpr int kMostMilliseconds = 1000;
        for (int i = 0; i < kMostMilliseconds && IsLentAtEnd(); ++i) {
            constexpr timespec kMillisecond{0, 1'000'000};
            nanosleep(&kMillisecond, nullptr);
        }
        Discarded discarded;
        const CS_Locker locker(m_section);
        if (m_nLent == 0) {
            DiscardAll(discarded);
        }
    }

private:
    bool TakeLocked(const void* i_pvThread, krb5_context& o_context, int64_t& o_nBornAt,
                    uint64_t& o_nGeneration) noexcept S_REQUIRES(m_section) {
        if (m_bEnding) {
            return false;
        }
        ++m_nLent;
        o_nGeneration = m_nGeneration;
        if (m_nIdle == 0) {
            return true;
        }
        // The one that this thread has used last, if it is there, or the one that was given back last: what a context
        // holds is in the cache of its processor, and in the C library's heap of its thread.
        size_t nTaken = m_nIdle - 1;
        for (size_t i = m_nIdle; i-- > 0;) {
            if (m_aIdle[i].m_pvThread == i_pvThread) {
                nTaken = i;
                break;
            }
        }
        const Idle taken = m_aIdle[nTaken];
        std::copy(m_aIdle.begin() + nTaken + 1, m_aIdle.begin() + m_nIdle, m_aIdle.begin() + nTaken);
        --m_nIdle;
        o_nBornAt = taken.m_nBornAt;
        o_context = taken.m_context;
        return true;
    }

    // Ends a loan, unless the context is not wanted any more and to be freed first. At the end it is left: this may be
    // after libkrb5's own.
    bool Keep(krb5_context i_context, int64_t i_nBornAt, uint64_t i_nGeneration) noexcept {
        const void* const pvThread = ThisThread();
        const CS_Locker locker(m_section);
        if (!m_bEnding) {
            if (i_nGeneration != m_nGeneration || m_nIdle == kMostIdle) {
                return false;
            }
            m_aIdle[m_nIdle++] = {i_context, i_nBornAt, pvThread};
        }
        --m_nLent;
        return true;
    }

    bool IsLentAtEnd() noexcept {
        const CS_Locker locker(m_section);
        m_bEnding = true;
        return m_nLent != 0;
    }

    void DiscardAll(Discarded& io_discarded) noexcept S_REQUIRES(m_section) {
        ++m_nGeneration;
        while (m_nIdle > 0) {
            io_discarded.Add(m_aIdle[--m_nIdle].m_context);
        }
    }

    void DiscardOld(int64_t i_nNow, Discarded& io_discarded) noexcept S_REQUIRES(m_section) {
        size_t nKept = 0;
        for (size_t i = 0; i < m_nIdle; ++i) {
            if (i_nNow - m_aIdle[i].m_nBornAt >= kLongestLife) {
                io_discarded.Add(m_aIdle[i].m_context);
            } else {
                m_aIdle[nKept++] = m_aIdle[i];
            }
        }
        m_nIdle = nKept;
    }

    CS_Wrapper m_section;
    std::array<Idle, kMostIdle> m_aIdle S_GUARDED_BY(m_section){};
    size_t m_nIdle S_GUARDED_BY(m_section) = 0;
    uint64_t m_nGeneration S_GUARDED_BY(m_section) = 0;
    uint64_t m_nMark S_GUARDED_BY(m_section) = 0;
    std::atomic<int64_t> m_nNextLook = 0;
    uid_t m_nUser S_GUARDED_BY(m_section) = 0;
    uint64_t m_nLent S_GUARDED_BY(m_section) = 0;
    bool m_bEnding S_GUARDED_BY(m_section) = false;
};

constinit Pool g_pool;

// The last work of all when the library is unloaded or the process ends (of what has a priority, the first to be made):
// others' needs a context to give something back with.
const Harrowlib201::AtUnload<void (*)()> g_end [[gnu::init_priority(1000)]] ([] { g_pool.End(); });

}  // namespace

Krb5LentContext::Krb5LentContext(Krb5LentContext&& io_other) noexcept
    : m_context(std::exchange(io_other.m_context, nullptr)),
      m_nBornAt(io_other.m_nBornAt),
      m_nGeneration(io_other.m_nGeneration),
      m_bLent(std::exchange(io_other.m_bLent, false)) {}

Krb5LentContext& Krb5LentContext::operator=(Krb5LentContext&& io_other) noexcept {
    m_context = std::exchange(io_other.m_context, nullptr);
    m_nBornAt = io_other.m_nBornAt;
    m_nGeneration = io_other.m_nGeneration;
    m_bLent = std::exchange(io_other.m_bLent, false);
    return *this;
}

Krb5LentContext::~Krb5LentContext() {
    if (m_bLent) {
        g_pool.GiveBack(m_context, m_nBornAt, m_nGeneration);
    }
}

Krb5LentContext Krb5LentContext::ForReleasing() noexcept {
    Krb5LentContext lent;
    lent.m_bLent = g_pool.TakeIdle(lent.m_context, lent.m_nBornAt, lent.m_nGeneration);
    profile_t profile = nullptr;
    if (lent.m_bLent && lent.m_context == nullptr && profile_init(nullptr, &profile) == 0) {
        lent.m_nGeneration = kOfNoGeneration;
        if (krb5_init_context_profile(profile, 0, &lent.m_context) != 0) {
            lent.m_context = nullptr;
        }
        profile_release(profile);
    }
    return lent;
}

void Krb5ParkedContext::Park(Krb5ContextLease& io_lease) noexcept {
    if (io_lease && !m_lent.m_bLent) {
        m_lent = std::move(io_lease.m_lent);
        m_nTick = TickNow();
        m_pvThread.store(ThisThread(), std::memory_order_relaxed);
    }
}

Krb5ContextLease LendKrb5Context(Krb5ParkedContext& io_parked) noexcept {
    // Nobody else touches what this thread has parked.
    if (io_parked.m_pvThread.load(std::memory_order_relaxed) == ThisThread() && io_parked.m_nTick == TickNow()) {
        Krb5ContextLease lease;
        if (lease.m_service.IsService()) {
            io_parked.m_pvThread.store(nullptr, std::memory_order_relaxed);
            lease.m_lent = std::move(io_parked.m_lent);
            krb5_clear_error_message(lease.get());
            return lease;
        }
    }
    return LendKrb5Context();
}

Krb5ContextLease LendKrb5Context() noexcept {
    const int64_t nNow = SecondsNow();
    Krb5ContextLease lease;
    if (!lease.m_service.IsService()) {
        lease.m_nCode = EPERM;
        return lease;
    }
    Krb5LentContext& lent = lease.m_lent;
    lent.m_bLent = g_pool.Take(nNow, lent.m_context, lent.m_nBornAt, lent.m_nGeneration);
    if (!lent.m_bLent) {
        lease.m_nCode = ECANCELED;
    } else if (lent.m_context != nullptr) {
        krb5_clear_error_message(lent.m_context);
    } else {
        lent.m_nBornAt = nNow;
        lease.m_nCode = MakeContext(lent.m_context);
    }
    return lease;
}

}  // namespace morwen
