// The kernel services that the plug-in uses.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// Each method has the name, the shape and the meaning of the system's function. Methods may be called on any thread;
// they never throw.
class KernelCalls {
public:
    KernelCalls() = default;
    KernelCalls(const KernelCalls&) = delete;
    KernelCalls& operator=(const KernelCalls&) = delete;
    virtual ~KernelCalls() = default;

    virtual HANDLE GetCurrentThread() noexcept = 0;
    virtual HANDLE GetCurrentProcess() noexcept = 0;
    virtual DWORD GetCurrentProcessId() noexcept = 0;
    virtual DWORD GetLastError() noexcept = 0;

    // Used with the flags allocate-buffer, from-system and ignore-inserts: o_pszBuffer then is a WCHAR** in disguise,
    // and what it receives goes back through LocalFree. Returns the text's length, 0 when there is no text for the
    // code.
    virtual DWORD FormatMessageW(DWORD i_nFlags, const void* i_pvSource, DWORD i_nMessageId, DWORD i_nLanguageId,
                                 WCHAR* o_pszBuffer, DWORD i_nSize, void* i_pvArguments) noexcept = 0;
    virtual HLOCAL LocalFree(HLOCAL i_pvMemory) noexcept = 0;

    virtual BOOL FileTimeToSystemTime(const FILETIME* i_pFileTime, SYSTEMTIME* o_pSystemTime) noexcept = 0;
};

}  // namespace morwen
