// The handles that stand for the calling thread and the process.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// They need no closing, and no token or object has their values.
inline HANDLE CurrentProcessHandle() noexcept {
    return reinterpret_cast<HANDLE>(~uintptr_t{0});
}
inline HANDLE CurrentThreadHandle() noexcept {
    return reinterpret_cast<HANDLE>(~uintptr_t{1});
}

}  // namespace morwen
