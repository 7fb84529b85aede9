/* The loader's calls as the contract test makes them, on Windows. */
#pragma once

#include <windows.h>

enum { RTLD_NOW = 0, RTLD_LOCAL = 0, RTLD_NOLOAD = 1 };
#define dlopen(library, mode) ((void*)((mode) == RTLD_NOLOAD ? GetModuleHandleA(library) : LoadLibraryA(library)))
#define dlsym(library, name) ((void*)(intptr_t)GetProcAddress(library, name))
#define dlclose(library) (FreeLibrary(library) ? 0 : -1)
#define dlerror() "the library cannot be loaded"
