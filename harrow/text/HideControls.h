// What a text must not hold that a person reads on a terminal.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace Harrowlib201 {

// Whoever reads a text on a terminal must see what it says, and names in it can come from strangers: control characters
// of UTF-8 text become question marks.
inline void HideControls(std::span<char> io_text) noexcept {
    const auto isBelowSpace = [](unsigned char i_c) { return i_c < 0x20 || i_c == 0x7F; };
    const auto isUpperHalf = [](char i_c, char i_next) {
        return i_c == '\xC2' && static_cast<unsigned char>(i_next) >= 0x80 && static_cast<unsigned char>(i_next) < 0xA0;
    };
    for (auto it = io_text.begin(); it != io_text.end(); ++it) {
        if (isBelowSpace(static_cast<unsigned char>(*it))) {
            *it = '?';
        } else if (it + 1 != io_text.end() && isUpperHalf(*it, *(it + 1))) {
            *it++ = '?';
            *it = '?';
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
