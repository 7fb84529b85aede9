/* The loader's calls as the contract test makes them, on Windows. */
#pragma once

#include <stdio.h>
#include <windows.h>

enum { RTLD_NOW = 0, RTLD_LOCAL = 0, RTLD_NOLOAD = 1 };

static void* dlopen(const char* i_pszLibrary, int i_nMode) {
    return i_nMode == RTLD_NOLOAD ? GetModuleHandleA(i_pszLibrary) : LoadLibraryA(i_pszLibrary);
}
static void* dlsym(void* i_pvLibrary, const char* i_pszName) {
    return (void*)(intptr_t)GetProcAddress(i_pvLibrary, i_pszName);
}
static int dlclose(void* i_pvLibrary) {
    return FreeLibrary(i_pvLibrary) ? 0 : -1;
}
static const char* dlerror(void) {
    static char s_szText[32];
    snprintf(s_szText, sizeof(s_szText), "error %lu", GetLastError());
    return s_szText;
}
