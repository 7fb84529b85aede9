// Processes do not fork here; one that ends has its other threads ended first, before the libraries hear of it.
#include "harrow/lifetime/OwnProcess.h"

#include "platform/windows/types/WindowsTypes.h"

namespace Harrowlib201 {

void OwnProcess::Note() noexcept {}

bool OwnProcess::IsForkedChild() noexcept {
    return false;
}

bool OwnProcess::IsAlone() noexcept {
    // No import library that every compiler has names it.
    const HMODULE hSystem = ::GetModuleHandleW(L"ntdll.dll");
    const FARPROC pfnFound = hSystem != nullptr ? ::GetProcAddress(hSystem, "RtlDllShutdownInProgress") : nullptr;
    return pfnFound != nullptr && reinterpret_cast<BOOLEAN(NTAPI*)()>(reinterpret_cast<void*>(pfnFound))() != FALSE;
}

}  // namespace Harrowlib201
