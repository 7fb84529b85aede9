// A handle tells of its thread, and keeps its number from being used again.
#include "harrow/threads/ThreadMark.h"

#include "platform/windows/types/WindowsTypes.h"

namespace Harrowlib201 {

ThreadMark::ThreadMark() noexcept : m_nThread(0), m_nStart(0) {
    HANDLE hThread = nullptr;
    // Asks for no right that an impersonated user would need: a pseudo handle may do everything.
    if (::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &hThread, SYNCHRONIZE,
                          FALSE, 0)) {
        m_nThread = reinterpret_cast<uintptr_t>(hThread);
    }
}

ThreadMark::~ThreadMark() {
    if (m_nThread != 0) {
        ::CloseHandle(reinterpret_cast<HANDLE>(m_nThread));
    }
}

bool ThreadMark::IsGone() const noexcept {
    return m_nThread != 0 && ::WaitForSingleObject(reinterpret_cast<HANDLE>(m_nThread), 0) == WAIT_OBJECT_0;
}

}  // namespace Harrowlib201
