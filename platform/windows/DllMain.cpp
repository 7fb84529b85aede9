// What the system calls when it loads a library of the product.
#include "platform/windows/types/WindowsTypes.h"

// Under the loader's lock, so nothing is started here: SSOInitPackage starts the package.
extern "C" BOOL WINAPI DllMain(HINSTANCE i_hLibrary, DWORD i_nReason, void*) {
    if (i_nReason == DLL_PROCESS_ATTACH) {
        ::DisableThreadLibraryCalls(i_hLibrary);
    }
    return TRUE;
}
