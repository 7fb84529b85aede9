#include "harrow/text/SWCharStringConv.h"

#include <charconv>
#include <iterator>

#include "harrow/lifetime/SecureWipe.h"

namespace Harrowlib201 {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <class Number>
SWCharString Format(Number i_nValue, int i_nRadix) {
    char aDigits[65];  // 64 binary digits and a sign
    const auto result = std::to_chars(std::begin(aDigits), std::end(aDigits), i_nValue, i_nRadix);
    char16_t aUnits[std::size(aDigits)];
    const char16_t* const pEnd = std::copy(std::begin(aDigits), result.ptr, aUnits);
    return SWCharString(std::u16string_view(aUnits, static_cast<size_t>(pEnd - aUnits)));
}

template <class Number>
bool Parse(const SWCharString& i_ssText, Number& o_nValue) {
    const std::u16string_view text = i_ssText.view();
    std::string digits(text.size(), '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] > 0x7F) {
            return false;
        }
        digits[i] = static_cast<char>(text[i]);
    }
    Number nValue = 0;
    const char* const pEnd = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), pEnd, nValue);
    if (result.ec != std::errc() || result.ptr != pEnd) {
        return false;
    }
    o_nValue = nValue;
    return true;
}

void AppendUtf8(char32_t i_cPoint, std::string& io_text) {
    const auto put = [&io_text](char32_t i_nByte) { io_text.push_back(static_cast<char>(i_nByte)); };
    if (i_cPoint < 0x80) {
        put(i_cPoint);
    } else if (i_cPoint < 0x800) {
        put(0xC0 | (i_cPoint >> 6));
        put(0x80 | (i_cPoint & 0x3F));
    } else if (i_cPoint < 0x10000) {
        put(0xE0 | (i_cPoint >> 12));
        put(0x80 | ((i_cPoint >> 6) & 0x3F));
        put(0x80 | (i_cPoint & 0x3F));
    } else {
        put(0xF0 | (i_cPoint >> 18));
        put(0x80 | ((i_cPoint >> 12) & 0x3F));
        put(0x80 | ((i_cPoint >> 6) & 0x3F));
        put(0x80 | (i_cPoint & 0x3F));
    }
}

// One code point from i_nAt on, which moves past it; a malformed sequence moves by one byte.
char32_t NextFromUtf8(std::string_view i_text, size_t& io_nAt) {
    const auto at = [&i_text](size_t i_nIndex) { return static_cast<unsigned char>(i_text[i_nIndex]); };
    const unsigned char nLead = at(io_nAt);
    if (nLead < 0x80) {
        ++io_nAt;
        return nLead;
    }
    const size_t nLength = nLead >= 0xF0 ? 4 : nLead >= 0xE0 ? 3 : 2;
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    char32_t cPoint = nLead & (0x7FU >> nLength);
    bool bGood = nLead >= 0xC2 && nLead <= 0xF4 && io_nAt + nLength <= i_text.size();
    for (size_t i = 1; bGood && i < nLength; ++i) {
        bGood = (at(io_nAt + i) & 0xC0) == 0x80;
        cPoint = (cPoint << 6) | (at(io_nAt + i) & 0x3F);
    }
    if (!bGood || cPoint < kSmallest[nLength] || cPoint > 0x10FFFF || (cPoint >= 0xD800 && cPoint < 0xE000)) {
        ++io_nAt;
        return kReplacement;
    }
    io_nAt += nLength;
    return cPoint;
}

// Grown once to its largest size and wiped at the end, so that no copy of a secret stays behind.
class WipedText {
public:
    explicit WipedText(size_t i_nMost) { m_text.reserve(i_nMost); }
    ~WipedText() { SecureWipe(m_text.data(), m_text.size() * sizeof(char16_t)); }
    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;

    std::u16string m_text;
};

}  // namespace

SWCharString SWCharStringConv::ToString(uint64_t i_nValue, int i_nRadix) {
    return Format(i_nValue, i_nRadix);
}

SWCharString SWCharStringConv::ToString(int64_t i_nValue, int i_nRadix) {
    return Format(i_nValue, i_nRadix);
}

bool SWCharStringConv::FromString(const SWCharString& i_ssText, uint64_t& o_nValue) {
    return Parse(i_ssText, o_nValue);
}

bool SWCharStringConv::FromString(const SWCharString& i_ssText, int64_t& o_nValue) {
    return Parse(i_ssText, o_nValue);
}

std::string SWCharStringConv::ToUtf8(std::u16string_view i_text) {
    std::string text;
    text.reserve(i_text.size() * 3);
    for (size_t i = 0; i < i_text.size(); ++i) {
        char32_t cPoint = i_text[i];
        if (cPoint >= 0xD800 && cPoint < 0xE000) {
            const bool bPair = cPoint < 0xDC00 && i + 1 < i_text.size() && (i_text[i + 1] & 0xFC00) == 0xDC00;
            cPoint = bPair ? 0x10000 + ((cPoint & 0x3FF) << 10) + (i_text[++i] & 0x3FFU) : kReplacement;
        }
        AppendUtf8(cPoint, text);
    }
    return text;
}

SWCharString SWCharStringConv::FromUtf8(std::string_view i_text) {
    WipedText wiped(i_text.size());
    for (size_t i = 0; i < i_text.size();) {
        const char32_t cPoint = NextFromUtf8(i_text, i);
        if (cPoint < 0x10000) {
            wiped.m_text.push_back(static_cast<char16_t>(cPoint));
        } else {
            wiped.m_text.push_back(static_cast<char16_t>(0xD800 + ((cPoint - 0x10000) >> 10)));
            wiped.m_text.push_back(static_cast<char16_t>(0xDC00 + (cPoint & 0x3FF)));
        }
    }
    return SWCharString(wiped.m_text);
}

}  // namespace Harrowlib201
