// How a step of the layer reports that the call has failed.
#pragma once

#include <krb5/krb5.h>

#include <string_view>

#include "platform/linux/krb5/FailureText.h"

namespace morwen {

// Thrown after the thread's failure text is set; LinuxSspi turns it into the call's status.
class SspiFailure {
public:
    explicit SspiFailure(SECURITY_STATUS i_nStatus) noexcept : m_nStatus(i_nStatus) {}
    SECURITY_STATUS Status() const noexcept { return m_nStatus; }

private:
    SECURITY_STATUS m_nStatus;
};

[[noreturn]] inline void Fail(SECURITY_STATUS i_nStatus, std::string_view i_text) {
    throw SspiFailure(FailWith(i_nStatus, i_text));
}

[[noreturn]] inline void FailKrb5(krb5_context i_context, krb5_error_code i_nCode, std::string_view i_whatWasTried) {
    throw SspiFailure(FailWithKrb5(i_context, i_nCode, i_whatWasTried));
}

}  // namespace morwen
