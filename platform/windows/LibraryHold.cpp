#include "harrow/lifetime/LibraryHold.h"

#include <windows.h>

#include <utility>

namespace Harrowlib201 {

void LibraryHold::Take() noexcept {
    static const char s_cOfThisLibrary = 0;
    HMODULE hModule = nullptr;
    if (m_pvLibrary == nullptr &&
        GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, &s_cOfThisLibrary, &hModule) != 0) {
        m_pvLibrary = hModule;
    }
}

void LibraryHold::Release() noexcept {
    if (void* const pvLibrary = std::exchange(m_pvLibrary, nullptr); pvLibrary != nullptr) {
        FreeLibrary(static_cast<HMODULE>(pvLibrary));
    }
}

}  // namespace Harrowlib201
