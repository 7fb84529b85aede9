// Texts as the host sees them, and the memory that they lie in.
#pragma once

#include "harrow/text/SWCharString.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using Harrowlib201::SWCharString;

// A text that the host passed in; null gives the empty text. Throws std::bad_alloc.
SWCharString FromHost(const SSOChar* i_pszText);

// A copy that SSOFreeString releases. Null for the empty text and when memory is short.
SSOChar* CopyToHost(const SWCharString& i_ssText) noexcept;
// What SSOFreeString does.
void FreeHostText(SSOChar* i_pszText) noexcept;

// A copy inside a record or a chain, which free() releases. Null for the empty text and when memory is short.
SSOChar* CopyToHeap(const SWCharString& i_ssText) noexcept;
// Releases a copy that CopyToHeap made; null does nothing.
void FreeHeapText(const SSOChar* i_pszText) noexcept;

}  // namespace morwen
