// Tells whether the thread that made it has ended.
#pragma once

#include <cstdint>

namespace Harrowlib201 {

class ThreadMark {
public:
    // Of the calling thread.
    ThreadMark() noexcept;
    ~ThreadMark();  // NOLINT(performance-trivially-destructible): on some systems it closes a handle
    ThreadMark(const ThreadMark&) = delete;
    ThreadMark& operator=(const ThreadMark&) = delete;

    // On any thread. False also when nobody can tell: in a forked child, say.
    bool IsGone() const noexcept;

private:
    uintptr_t m_nThread;  // by the system's number, or a handle
    uint64_t m_nStart;    // when it began, because numbers are used again; 0: unknown
};

}  // namespace Harrowlib201
