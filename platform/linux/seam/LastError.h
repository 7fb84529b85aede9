// The calling thread's last error, which the token calls and the kernel calls set.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// A plain number: a thread_local with a destructor would keep the library loaded.
inline constinit thread_local DWORD t_nLastError = ERROR_SUCCESS;

// Sets it and returns what a failed call returns.
inline BOOL FailWithLastError(DWORD i_nError) noexcept {
    t_nLastError = i_nError;
    return FALSE;
}

}  // namespace morwen
