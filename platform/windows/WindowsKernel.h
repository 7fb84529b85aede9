// The kernel services, forwarded to the system.
#pragma once

#include "platform/KernelCalls.h"

namespace morwen {

class WindowsKernel final : public KernelCalls {
public:
    HANDLE GetCurrentThread() noexcept override { return ::GetCurrentThread(); }
    HANDLE GetCurrentProcess() noexcept override { return ::GetCurrentProcess(); }
    DWORD GetCurrentProcessId() noexcept override { return ::GetCurrentProcessId(); }
    DWORD GetLastError() noexcept override { return ::GetLastError(); }

    DWORD FormatMessageW(DWORD i_nFlags, const void* i_pvSource, DWORD i_nMessageId, DWORD i_nLanguageId,
                         WCHAR* o_pszBuffer, DWORD i_nSize, void* i_pvArguments) noexcept override {
        return ::FormatMessageW(i_nFlags, i_pvSource, i_nMessageId, i_nLanguageId, o_pszBuffer, i_nSize,
                                static_cast<va_list*>(i_pvArguments));
    }
    HLOCAL LocalFree(HLOCAL i_pvMemory) noexcept override { return ::LocalFree(i_pvMemory); }

    BOOL FileTimeToSystemTime(const FILETIME* i_pFileTime, SYSTEMTIME* o_pSystemTime) noexcept override {
        return ::FileTimeToSystemTime(i_pFileTime, o_pSystemTime);
    }
};

}  // namespace morwen
