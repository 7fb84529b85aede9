// A fresh security context for a user who is logged on already.
#pragma once

#include "handlers/SSOCredentials.h"
#include "handlers/StaticToken.h"
#include "handlers/kerberos/KerberosSSPIHandler.h"
#include "platform/OsTypes.h"

namespace morwen {

// One handshake inside the process, the client acting as the user and the server as the process. Failures are
// SSOExceptions; the thread is itself again after each operation.
class Renegotiation {
public:
    // With the context's handler: asks it for the server's principal, and acquires the credentials of the process.
    explicit Renegotiation(const SSOHandlerPtr& i_pHandler);

    // Acquires the default credentials of the context's user, acting as that user for a moment.
    void AcquireUserCredentials(CtxtHandle* i_pContext);

    // The handshake. Returns a token with the fresh context.
    StaticTokenPtr Run();

private:
    Harrowlib201::CSmartRefCountPtr<KerberosSSPIHandler> m_pHandler;
    SWCharString m_ssSPN;
    SSOCredentialsPtr m_pServerCreds;
    SSOCredentialsPtr m_pUserCreds;
};

}  // namespace morwen
