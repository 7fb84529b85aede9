// The words that go with a failed status, kept for the thread until FormatMessageW asks for them.
#pragma once

#include <krb5/krb5.h>

#include <string>
#include <string_view>

#include "platform/OsTypes.h"

namespace morwen {

// Remembers the text (UTF-8, cut at 511 bytes on a character border, control characters hidden) for the status on the
// calling thread, in place of the one before, and returns the status. Never throws.
SECURITY_STATUS FailWith(SECURITY_STATUS i_nStatus, std::string_view i_text) noexcept;

// The text that belongs to the status on the calling thread; empty if the thread's last failure was another.
std::string_view FailureText(SECURITY_STATUS i_nStatus) noexcept;

// The status that a libkrb5 code stands for, from the one table of the layer. Zero gives SEC_E_OK.
SECURITY_STATUS StatusFromKrb5(krb5_error_code i_nCode) noexcept;

// FailWith the status of the code and a text made of what was tried and the library's own words ("accepting a logon for
// morwen/host@REALM with keytab FILE:/etc/krb5.keytab: Wrong principal in request").
SECURITY_STATUS FailWithKrb5(krb5_context i_context, krb5_error_code i_nCode, std::string_view i_whatWasTried) noexcept;

}  // namespace morwen
