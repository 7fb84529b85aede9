// Bytes as characters that survive copying and pasting.
#include "tools/doctor/Base64.h"

namespace morwen::doctor {

namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string ToBase64(std::span<const uint8_t> i_bytes) {
    std::string text;
    for (size_t i = 0; i < i_bytes.size(); i += 3) {
        const size_t nHere = i_bytes.size() - i < 3 ? i_bytes.size() - i : 3;
        uint32_t nBits = 0;
        for (size_t n = 0; n < 3; ++n) {
            nBits = nBits << 8U | (n < nHere ? i_bytes[i + n] : 0U);
        }
        for (size_t n = 0; n < 4; ++n) {
            text += n <= nHere ? kDigits[nBits >> (18U - 6U * n) & 0x3FU] : '=';
        }
    }
    return text;
}

std::optional<std::vector<uint8_t>> FromBase64(std::string_view i_text) {
    if (i_text.size() % 4 != 0) {
        return std::nullopt;
    }
    size_t nPadding = 0;
    while (nPadding < 2 && nPadding < i_text.size() && i_text[i_text.size() - 1 - nPadding] == '=') {
        ++nPadding;
    }
    std::vector<uint8_t> bytes;
    uint32_t nBits = 0;
    for (size_t i = 0; i < i_text.size(); ++i) {
        const bool bPadding = i >= i_text.size() - nPadding;
        const size_t nDigit = bPadding ? 0 : kDigits.find(i_text[i]);
        if (nDigit == std::string_view::npos) {
            return std::nullopt;
        }
        nBits = nBits << 6U | static_cast<uint32_t>(nDigit);
        if (i % 4 == 3) {
            bytes.insert(bytes.end(), {static_cast<uint8_t>(nBits >> 16U), static_cast<uint8_t>(nBits >> 8U),
                                       static_cast<uint8_t>(nBits)});
            nBits = 0;
        }
    }
    bytes.resize(bytes.size() - nPadding);
    return bytes;
}

}  // namespace morwen::doctor
