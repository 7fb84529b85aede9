// The kernel calls: pseudo handles, the last error, error texts, dates.
#pragma once

#include "platform/KernelCalls.h"

namespace morwen {

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
