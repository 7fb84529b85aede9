// The gate that calls go through, which can be shut behind those inside.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Harrowlib201 {

// Shut at first. Who goes in and out costs one atomic operation each and waits for nobody, unlike a reader of a lock
// behind a writer that waits for another reader. What was written before it opens is seen inside; what was done inside
// is seen by who has waited for the last to leave.
class CGate {
public:
    CGate() = default;
    CGate(const CGate&) = delete;
    CGate& operator=(const CGate&) = delete;

    // False when it is shut. Each success needs a Leave, on whatever thread.
    bool Enter() noexcept {
        if ((m_nState.load(std::memory_order_relaxed) & kOpen) == 0) {
            return false;  // without a trace, or callers that are turned away could keep it from ever being empty
        }
        if ((m_nState.fetch_add(1, std::memory_order_acquire) & kOpen) != 0) {
            return true;
        }
        Leave();
        return false;
    }
    void Leave() noexcept {
        if (m_nState.fetch_sub(1, std::memory_order_acq_rel) == 1) {  // the last, and it is shut
            const std::lock_guard lock(m_mutex);
            m_empty.notify_all();
        }
    }

    void Open() noexcept { m_nState.fetch_or(kOpen, std::memory_order_release); }
    // Nobody goes in any more; who is inside stays.
    void Shut() noexcept { m_nState.fetch_and(~kOpen, std::memory_order_acq_rel); }
    // Waits until nobody is inside a shut gate.
    void AwaitEmpty() {
        std::unique_lock lock(m_mutex);
        m_empty.wait(lock, [this] { return IsEmpty(); });
    }
    bool IsEmpty() const noexcept { return (m_nState.load(std::memory_order_acquire) & ~kOpen) == 0; }
    // For a forked child, in which those inside do not exist.
    void ForgetAll() noexcept { m_nState.store(0, std::memory_order_release); }

private:
    static constexpr uint32_t kOpen = uint32_t{1} << 31U;

    std::atomic<uint32_t> m_nState{0};  // whether it is open, and how many are inside
    std::mutex m_mutex;
    std::condition_variable m_empty;
};

// Inside a gate for a scope, if it is open.
class CPassage {
public:
    explicit CPassage(CGate& i_gate) noexcept : m_pGate(i_gate.Enter() ? &i_gate : nullptr) {}
    ~CPassage() {
        if (m_pGate != nullptr) {
            m_pGate->Leave();
        }
    }
    CPassage(const CPassage&) = delete;
    CPassage& operator=(const CPassage&) = delete;

    explicit operator bool() const noexcept { return m_pGate != nullptr; }

private:
    CGate* m_pGate;
};

}  // namespace Harrowlib201
