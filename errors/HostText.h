// Texts as the host sees them, and the memory that they lie in.
#pragma once

#include <string_view>

#include "harrow/text/SWCharString.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using Harrowlib201::SWCharString;

// A text that the host passed in; null gives the empty text. Throws std::bad_alloc.
SWCharString FromHost(const SSOChar* i_pszText);

// The same for as long as the call lasts, which is all that a search needs: where the host's units are the library's
// own it is no copy. Throws std::bad_alloc.
class HostKey {
public:
    explicit HostKey(const SSOChar* i_pszKey) { Read(i_pszKey); }
    HostKey(const HostKey&) = delete;
    HostKey& operator=(const HostKey&) = delete;
    ~HostKey() = default;

    std::u16string_view view() const noexcept { return m_key; }

private:
    void Read(const char16_t* i_pszKey) noexcept { m_key = i_pszKey != nullptr ? i_pszKey : std::u16string_view(); }
    template <class Unit>
    void Read(const Unit* i_pszKey) {
        m_ssCopy = SWCharString::FromUnits(i_pszKey);
        m_key = m_ssCopy.view();
    }

    SWCharString m_ssCopy;
    std::u16string_view m_key;
};

// A copy that SSOFreeString releases. Null for the empty text and when memory is short.
SSOChar* CopyToHost(const SWCharString& i_ssText) noexcept;
// What SSOFreeString does.
void FreeHostText(SSOChar* i_pszText) noexcept;

// A copy inside a record or a chain, which free() releases. Null for the empty text and when memory is short.
SSOChar* CopyToHeap(const SWCharString& i_ssText) noexcept;
// Releases a copy that CopyToHeap made; null does nothing.
void FreeHeapText(const SSOChar* i_pszText) noexcept;

}  // namespace morwen
