// The tickets of a user who has given a name and a password.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <string>

#include "harrow/locks/CS_Wrapper.h"
#include "harrow/text/SWCharString.h"
#include "platform/linux/contexts/Krb5Kept.h"

namespace morwen {

// Asks the KDC when the tickets are first needed, and again when they have expired. The password lives as long as the
// object and is wiped with it. Any method on any thread.
class PasswordLogon {
public:
    // The domain is empty for the default realm, or its name or first label, or another realm, all in any case.
    PasswordLogon(std::string i_domain, std::string i_user, Harrowlib201::SWCharString i_ssPassword);
    PasswordLogon(const PasswordLogon&) = delete;
    PasswordLogon& operator=(const PasswordLogon&) = delete;

    // The name of a MEMORY cache that holds a ticket-granting ticket and goes away with this object. Throws
    // SspiFailure: SEC_E_LOGON_DENIED when the KDC does not accept the user or the password, with libkrb5's code.
    std::string Cache(krb5_context i_context);

private:
    void LogOn(krb5_context i_context) S_REQUIRES(m_section);

    const std::string m_domain;
    const std::string m_user;
    const Harrowlib201::SWCharString m_ssPassword;
    Harrowlib201::CS_Wrapper m_section;
    KeptMemoryCache m_cache S_GUARDED_BY(m_section);
    std::string m_cacheName S_GUARDED_BY(m_section);
    int64_t m_nEnd S_GUARDED_BY(m_section) = 0;
};

}  // namespace morwen
