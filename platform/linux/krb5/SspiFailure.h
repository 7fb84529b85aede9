// How a step of the layer reports that the call has failed: a status, and words that the thread remembers for it.
#pragma once

#include <krb5/krb5.h>

#include <string_view>

#include "platform/OsTypes.h"
#include "platform/linux/krb5/Krb5Status.h"

namespace morwen {

// Thrown after the thread's failure text is set; LinuxSspi turns it into the call's status.
class SspiFailure {
public:
    explicit SspiFailure(SECURITY_STATUS i_nStatus, krb5_error_code i_nCode = 0) noexcept
        : m_nStatus(i_nStatus), m_nCode(i_nCode) {}
    SECURITY_STATUS Status() const noexcept { return m_nStatus; }
    // libkrb5's code behind the status; 0 where nobody needs to know.
    krb5_error_code Krb5Code() const noexcept { return m_nCode; }

private:
    SECURITY_STATUS m_nStatus;
    krb5_error_code m_nCode;
};

// Remembers the text (UTF-8, cut at 511 bytes on a character border, control characters hidden) for the status on the
// calling thread, in place of the one before, and returns the status. Never throws.
SECURITY_STATUS FailWith(SECURITY_STATUS i_nStatus, std::string_view i_text) noexcept;

// The same with the status of the code and a text made of what was tried and the library's own words ("accepting a
// logon for morwen/host@REALM with keytab FILE:/etc/krb5.keytab: Wrong principal in request").
SECURITY_STATUS FailWithKrb5(krb5_context i_context, krb5_error_code i_nCode, std::string_view i_whatWasTried) noexcept;

// The text that belongs to the status on the calling thread, kept until FormatMessageW asks for it; empty if the
// thread's last failure was another.
std::string_view FailureText(SECURITY_STATUS i_nStatus) noexcept;

[[noreturn]] inline void Fail(SECURITY_STATUS i_nStatus, std::string_view i_text) {
    throw SspiFailure(FailWith(i_nStatus, i_text));
}

[[noreturn]] inline void FailKrb5(krb5_context i_context, krb5_error_code i_nCode, std::string_view i_whatWasTried) {
    throw SspiFailure(FailWithKrb5(i_context, i_nCode, i_whatWasTried));
}

}  // namespace morwen
