// The operating system's words for an error.
#pragma once

#include "harrow/text/SWCharString.h"
#include "platform/OsTypes.h"

namespace morwen {

using Harrowlib201::SWCharString;

// The system's text for a status or an error code, empty when it has none. To be called on the thread that met the
// error. Throws std::bad_alloc.
SWCharString FormatSystemText(DWORD i_nCode);

// "Error ", the status in decimal, ": " and the system's text, or "???" when it has none; empty for success. To be
// called on the thread that received the status. Throws std::bad_alloc.
SWCharString GetErrorText(SECURITY_STATUS i_nStatus);

// The system's text for a status becomes the calling thread's reason (harrow_log.h). To be called on the thread that
// received the status, before it calls the system again.
void NoteReason(SECURITY_STATUS i_nStatus) noexcept;

// The text of the calling thread's last error, or "Unknown error.". Throws std::bad_alloc.
SWCharString GetLastErrorText();

}  // namespace morwen
