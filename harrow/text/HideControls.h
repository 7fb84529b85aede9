// What a text must not hold that a person reads on a terminal.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

namespace Harrowlib201 {

// Whether these bytes of UTF-8 begin with what steers a terminal or the direction of what follows, and how long it is;
// 0 when they do not. A control byte that stands alone steers terminals that do not read UTF-8.
inline size_t ControlLength(std::span<const char> i_text) noexcept {
    const auto at = [i_text](size_t i_n) { return i_n < i_text.size() ? static_cast<unsigned char>(i_text[i_n]) : 0U; };
    const auto isIn = [](unsigned i_c, unsigned i_first, unsigned i_last) { return i_c >= i_first && i_c <= i_last; };
    if (at(0) < 0x20 || isIn(at(0), 0x7F, 0x9F)) {
        return 1;
    }
    const bool bTwo = (at(0) == 0xC2 && isIn(at(1), 0x80, 0x9F)) || (at(0) == 0xD8 && at(1) == 0x9C);
    // Marks of direction, separators of lines, embeddings, overrides and isolates.
    const bool bThree = at(0) == 0xE2 && ((at(1) == 0x80 && (isIn(at(2), 0x8E, 0x8F) || isIn(at(2), 0xA8, 0xAE))) ||
                                          (at(1) == 0x81 && isIn(at(2), 0xA6, 0xA9)));
    return bTwo ? 2 : bThree ? 3 : 0;
}

// Whoever reads a text on a terminal must see what it says, and names in it can come from strangers: control characters
// and those that change the direction become question marks, one for each byte.
inline void HideControls(std::span<char> io_text) noexcept {
    const auto isTail = [](char i_c) { return (static_cast<unsigned char>(i_c) & 0xC0U) == 0x80U; };
    for (size_t i = 0; i < io_text.size();) {
        if (const size_t nControl = ControlLength(io_text.subspan(i)); nControl != 0) {
            std::fill_n(io_text.begin() + static_cast<std::ptrdiff_t>(i), nControl, '?');
            i += nControl;
            continue;
        }
        const auto nFirst = static_cast<unsigned char>(io_text[i++]);
        for (int nTails = nFirst >= 0xF0   ? 3
                          : nFirst >= 0xE0 ? 2
                          : nFirst >= 0xC0 ? 1
                                           : 0;
             nTails > 0 && i < io_text.size() && isTail(io_text[i]); --nTails) {
            ++i;  // a part of a character, whatever it would be by itself
        }
    }
}

// How many bytes of UTF-8 text fit without cutting a character in two.
inline size_t FittingLength(std::string_view i_text, size_t i_nRoom) noexcept {
    if (i_text.size() <= i_nRoom) {
        return i_text.size();
    }
    size_t nLength = i_nRoom;
    while (nLength > 0 && (static_cast<unsigned char>(i_text[nLength]) & 0xC0U) == 0x80U) {
        --nLength;
    }
    return nLength;
}

}  // namespace Harrowlib201
