// The message texts by identifier.
#pragma once

#include <cstdint>
#include <span>

#include "harrow/text/SWCharString.h"

namespace Harrowlib201 {

struct SMessage {
    uint32_t m_nId;
    const char* m_pszText;  // ASCII, with "%1" to "%3" for the substitution strings
};

class SResManager {
public:
    // From now on LoadStringW finds these texts; the table must outlive its use. Not to be called while another thread
    // loads a text.
    static void Initialize(std::span<const SMessage> i_messages) noexcept;
    // No text is found any more.
    static void Terminate() noexcept;

    // Empty when there is no text under the identifier. There is one language, 0.
    static SWCharString LoadStringW(uint32_t i_nId, uint32_t i_nLanguage);
};

}  // namespace Harrowlib201
