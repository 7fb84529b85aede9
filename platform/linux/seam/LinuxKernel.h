// The kernel calls: pseudo handles, the last error, error texts, dates.
#pragma once

#include "platform/KernelCalls.h"

namespace morwen {

// The handles that stand for the calling thread and the process: they need no closing, and no token or object has their
// values.
inline HANDLE CurrentProcessHandle() noexcept {
    return reinterpret_cast<HANDLE>(~uintptr_t{0});
}
inline HANDLE CurrentThreadHandle() noexcept {
    return reinterpret_cast<HANDLE>(~uintptr_t{1});
}

// The calling thread's last error. A plain number: a thread_local with a destructor would keep the library loaded.
inline constinit thread_local DWORD t_nLastError = ERROR_SUCCESS;

// Sets it and returns what a failed call returns.
inline BOOL FailWithLastError(DWORD i_nError) noexcept {
    t_nLastError = i_nError;
    return FALSE;
}

class LinuxKernel final : public KernelCalls {
public:
    HANDLE GetCurrentThread() noexcept override;
    HANDLE GetCurrentProcess() noexcept override;
    DWORD GetCurrentProcessId() noexcept override;
    DWORD GetLastError() noexcept override;

    DWORD FormatMessageW(DWORD i_nFlags, const void* i_pvSource, DWORD i_nMessageId, DWORD i_nLanguageId,
                         WCHAR* o_pszBuffer, DWORD i_nSize, void* i_pvArguments) noexcept override;
    HLOCAL LocalFree(HLOCAL i_pvMemory) noexcept override;

    BOOL FileTimeToSystemTime(const FILETIME* i_pFileTime, SYSTEMTIME* o_pSystemTime) noexcept override;
};

}  // namespace morwen
