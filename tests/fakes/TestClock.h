// A clock that stands still until a test moves it.
#pragma once

#include <atomic>

#include "harrow/time/SDateTime.h"

namespace morwen {

// The system's clock is back at its end. May be moved while many threads read it.
class TestClock {
public:
    explicit TestClock(int64_t i_nUtcMilliseconds) {
        Set(i_nUtcMilliseconds);
        Harrowlib201::SDateTime::SetClock([]() noexcept { return s_nNow.load(); });
    }
    ~TestClock() { Harrowlib201::SDateTime::SetClock(nullptr); }
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    void Set(int64_t i_nUtcMilliseconds) { s_nNow = i_nUtcMilliseconds; }

private:
    static inline std::atomic<int64_t> s_nNow{0};
};

}  // namespace morwen
