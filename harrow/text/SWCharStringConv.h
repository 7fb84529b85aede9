// Conversions between texts and numbers, and between UTF-16 and UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "harrow/text/SWCharString.h"

namespace Harrowlib201 {

class SWCharStringConv {
public:
    // Digits of the radix (2 to 36), lower case, no padding; a minus for a negative number.
    static SWCharString ToString(uint64_t i_nValue, int i_nRadix = 10);
    static SWCharString ToString(int64_t i_nValue, int i_nRadix = 10);

    // Decimal digits and nothing else; a signed number may begin with a minus. False, and o_nValue untouched, for
    // anything else, the empty text and numbers out of range included.
    static bool FromString(const SWCharString& i_ssText, uint64_t& o_nValue);
    static bool FromString(const SWCharString& i_ssText, int64_t& o_nValue);

    // What has no meaning (a lone surrogate, a malformed sequence) becomes U+FFFD.
    static std::string ToUtf8(std::u16string_view i_text);
    static SWCharString FromUtf8(std::string_view i_text);
};

}  // namespace Harrowlib201
