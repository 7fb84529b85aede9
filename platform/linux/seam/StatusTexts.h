// What a status or an error code means, in words for an administrator.
#pragma once

#include <string_view>

#include "platform/OsTypes.h"

namespace morwen {

// ASCII, one or two sentences with their full stops; empty for a code without a text.
std::string_view StatusText(DWORD i_nCode) noexcept;

}  // namespace morwen
