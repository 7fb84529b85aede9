// The system's own headers, trimmed of what collides with ordinary names.
#pragma once

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX  // some C++ libraries define it
#define NOMINMAX
#endif
#define SECURITY_WIN32
#include <windows.h>
// sspi.h must follow windows.h.
#include <security.h>
