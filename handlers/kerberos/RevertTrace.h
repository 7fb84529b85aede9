// The trace of a revert that the package refused.
#pragma once

#include <string>

#include "harrow/log/STrace.h"
#include "platform/OsTypes.h"

namespace morwen {

// The status, in decimal, takes the place of "%d".
inline void TraceFailedRevert(const char* i_pszText, SECURITY_STATUS i_nStatus) noexcept {
    if (!Harrowlib201::ShouldTrace()) {
        return;
    }
    try {
        std::string text = i_pszText;
        text.replace(text.find("%d"), 2, std::to_string(i_nStatus));
        Harrowlib201::STrace(__FILE__, __LINE__, text.c_str(), {});
    } catch (const std::bad_alloc&) {
        Harrowlib201::STrace(__FILE__, __LINE__, i_pszText, {});
    }
}

}  // namespace morwen
