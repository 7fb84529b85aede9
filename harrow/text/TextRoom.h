// A text that is still being written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

#include "harrow/text/SWCharString.h"

namespace Harrowlib201 {

// Becomes a string where it stands: a long text need not be copied to be one, nor overwritten twice.
class TextRoom {
public:
    // For so many units. Throws std::bad_alloc.
    explicit TextRoom(size_t i_nUnits) : m_nUnits(i_nUnits), m_pszText(m_ssText.Allocate(i_nUnits)) {}

    size_t size() const noexcept { return m_nUnits; }
    char16_t* get() const noexcept { return m_pszText; }

    // Larger, with the first units as they were. Throws std::bad_alloc and leaves everything as it was.
    void Grow(size_t i_nUnits, size_t i_nKept) {
        TextRoom larger(i_nUnits);
        std::copy_n(m_pszText, i_nKept, larger.m_pszText);
        *this = std::move(larger);
    }

    // The text, of as many units as have been written; then nothing is left here.
    SWCharString Take(size_t i_nLength) noexcept {
        if (i_nLength == 0) {
            return {};
        }
        m_pszText[i_nLength] = u'\0';
        m_ssText.m_pBody->m_nLength = i_nLength;
        return std::move(m_ssText);
    }

private:
    SWCharString m_ssText;  // nobody else's yet
    size_t m_nUnits;
    char16_t* m_pszText;
};

}  // namespace Harrowlib201
