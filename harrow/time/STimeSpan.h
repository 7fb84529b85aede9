// A length of time.
#pragma once

#include <compare>
#include <cstdint>
#include <limits>

namespace Harrowlib201 {

// Milliseconds, signed. Sums and differences that do not fit stay at the largest or smallest span.
class STimeSpan {
public:
    constexpr STimeSpan() noexcept = default;
    constexpr explicit STimeSpan(int64_t i_nMilliseconds) noexcept : m_nMilliseconds(i_nMilliseconds) {}

    static constexpr STimeSpan Largest() noexcept { return STimeSpan(std::numeric_limits<int64_t>::max()); }

    constexpr int64_t GetTotalMilliseconds() const noexcept { return m_nMilliseconds; }
    constexpr bool isZero() const noexcept { return m_nMilliseconds == 0; }

    friend constexpr bool operator==(STimeSpan, STimeSpan) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(STimeSpan, STimeSpan) noexcept = default;

private:
    int64_t m_nMilliseconds = 0;
};

// The sum, or the nearest number that fits.
constexpr int64_t SaturatingAdd(int64_t i_nLeft, int64_t i_nRight) noexcept {
    if (i_nRight > 0 && i_nLeft > std::numeric_limits<int64_t>::max() - i_nRight) {
        return std::numeric_limits<int64_t>::max();
    }
    if (i_nRight < 0 && i_nLeft < std::numeric_limits<int64_t>::min() - i_nRight) {
        return std::numeric_limits<int64_t>::min();
    }
    return i_nLeft + i_nRight;
}

}  // namespace Harrowlib201
