// The credentials of one handshake: of the calling thread's user, or of a user with a password.
#pragma once

#include "handlers/SSOCredentials.h"
#include "harrow/text/SWCharString.h"
#include "platform/OsTypes.h"

namespace morwen {

using Harrowlib201::SWCharString;

// Owns one credentials handle of the package "Kerberos". Built on one thread, afterwards only read.
class KerberosSSPICredentials : public SSOCredentials {
public:
    // An empty user name means the identity under which the calling thread runs, and the password is not used; any
    // other name has the form DOMAIN\user. The type is one of SSOHandler::CredentialType. Throws SSOException.
    KerberosSSPICredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword, uint32_t i_nCredentialType);

    // Valid as long as this object lives.
    CredHandle* GetHandle() noexcept { return &m_handle; }

private:
    ~KerberosSSPICredentials() override;

    CredHandle m_handle{};
    TimeStamp m_tsExpiry{};
};

}  // namespace morwen
