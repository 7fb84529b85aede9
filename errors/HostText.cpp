#include "errors/HostText.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace morwen {

namespace {
SSOChar* Fill(SSOChar* o_pszCopy, const SWCharString& i_ssText) noexcept {
    if (o_pszCopy != nullptr) {
        std::copy_n(i_ssText.c_str(), i_ssText.length() + 1, o_pszCopy);
    }
    return o_pszCopy;
}
}  // namespace

SWCharString FromHost(const SSOChar* i_pszText) {
    return SWCharString::FromUnits(i_pszText);
}

SSOChar* CopyToHost(const SWCharString& i_ssText) noexcept {
    return i_ssText.isEmpty() ? nullptr : Fill(new (std::nothrow) SSOChar[i_ssText.length() + 1], i_ssText);
}

void FreeHostText(SSOChar* i_pszText) noexcept {
    delete[] i_pszText;
}

SSOChar* CopyToHeap(const SWCharString& i_ssText) noexcept {
    if (i_ssText.isEmpty()) {
        return nullptr;
    }
    return Fill(static_cast<SSOChar*>(std::malloc((i_ssText.length() + 1) * sizeof(SSOChar))), i_ssText);
}

void FreeHeapText(const SSOChar* i_pszText) noexcept {
    std::free(const_cast<SSOChar*>(i_pszText));
}

}  // namespace morwen
