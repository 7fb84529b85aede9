// libkrb5 contexts, kept and lent: making one costs a process-wide lock and a read of the configuration.
#pragma once

#include <krb5/krb5.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "platform/linux/identity/ThreadIdentity.h"

namespace morwen {

class Krb5ContextLease;
class Krb5ParkedContext;

// A context of the pool that only the holder uses, for what needs no files and no identity, as giving something back.
// The thread stays who it is: no such call can leave it somebody else.
class Krb5LentContext {
public:
    // An idle context if there is one, else one without any configuration. None while the process ends: what libkrb5
    // has made stays then.
    static Krb5LentContext ForReleasing() noexcept;

    Krb5LentContext() = default;
    Krb5LentContext(Krb5LentContext&& io_other) noexcept;
    // Into one that has none.
    Krb5LentContext& operator=(Krb5LentContext&& io_other) noexcept;
    Krb5LentContext(const Krb5LentContext&) = delete;
    Krb5LentContext& operator=(const Krb5LentContext&) = delete;
    ~Krb5LentContext();

    // Null when none could be made.
    krb5_context get() const noexcept { return m_context; }

private:
    friend Krb5ContextLease LendKrb5Context() noexcept;
    friend Krb5ParkedContext;

    krb5_context m_context = nullptr;
    int64_t m_nBornAt = 0;       // seconds of the monotonic clock
    uint64_t m_nGeneration = 0;  // of the configuration that it was made from
    bool m_bLent = false;        // something is to be given back, be it null
};

// A context that only the holder uses until it goes back; until then the thread is the service, even if it impersonates
// somebody, and there is none while a thread is stuck between the two. It is set up for this layer: the replay cache is
// the service's own file, requests to a KDC have a deadline, and no error of an earlier use is left in it.
class Krb5ContextLease {
public:
    Krb5ContextLease(Krb5ContextLease&& io_other) noexcept
        : m_lent(std::move(io_other.m_lent)), m_nCode(io_other.m_nCode) {}
    Krb5ContextLease& operator=(Krb5ContextLease&&) = delete;
    Krb5ContextLease(const Krb5ContextLease&) = delete;
    Krb5ContextLease& operator=(const Krb5ContextLease&) = delete;
    ~Krb5ContextLease() = default;

    // False when no context could be made; Code tells why.
    explicit operator bool() const noexcept { return get() != nullptr; }
    krb5_error_code Code() const noexcept { return m_nCode; }
    krb5_context get() const noexcept { return m_lent.get(); }

private:
    friend Krb5ContextLease LendKrb5Context() noexcept;
    friend Krb5ContextLease LendKrb5Context(Krb5ParkedContext& io_parked) noexcept;
    friend Krb5ParkedContext;
    Krb5ContextLease() = default;

    // The first to begin and the last to end: whatever is done with a context is done as the service.
    ServiceScope m_service;

    Krb5LentContext m_lent;
    krb5_error_code m_nCode = 0;
};

// A context that a call has done with and leaves for the next one, so that this need not ask for another.
class Krb5ParkedContext {
public:
    Krb5ParkedContext() = default;
    Krb5ParkedContext(const Krb5ParkedContext&) = delete;
    Krb5ParkedContext& operator=(const Krb5ParkedContext&) = delete;
    ~Krb5ParkedContext() = default;

    // The lease has none any more.
    void Park(Krb5ContextLease& io_lease) noexcept;

private:
    friend Krb5ContextLease LendKrb5Context(Krb5ParkedContext& io_parked) noexcept;

    std::atomic<const void*> m_pvThread{nullptr};  // who has parked one and may take it
    int64_t m_nTick = 0;
    Krb5LentContext m_lent;
};

// The parked one, if it is this thread's and of the same tick of the clock, in which nothing has changed; else as
// below.
Krb5ContextLease LendKrb5Context(Krb5ParkedContext& io_parked) noexcept;

// Lends a context, a new one when none is idle, when the idle ones are older than a minute, when the configuration
// files have changed (looked at once a second at most) or when the process runs as another user than they were made
// for. None is lent while the process ends. Never throws; look at the lease.
Krb5ContextLease LendKrb5Context() noexcept;

}  // namespace morwen
