// The operating system's types and constants, under the same names on every platform.
#pragma once

#ifdef _WIN32
#include "platform/windows/types/WindowsTypes.h"
#else
#include "platform/linux/types/LinuxTypes.h"
#endif
