#include "harrow/lifetime/LibraryHold.h"

#include <dlfcn.h>

#include <utility>

namespace Harrowlib201 {

void LibraryHold::Take() noexcept {
    static const char s_cOfThisLibrary = 0;
    Dl_info found{};
    if (m_pvLibrary == nullptr && dladdr(&s_cOfThisLibrary, &found) != 0 && found.dli_fname != nullptr) {
        m_pvLibrary = dlopen(found.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    }
}

void LibraryHold::Release() noexcept {
    if (void* const pvLibrary = std::exchange(m_pvLibrary, nullptr); pvLibrary != nullptr) {
        dlclose(pvLibrary);
    }
}

}  // namespace Harrowlib201
