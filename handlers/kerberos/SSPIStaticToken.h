// The security context of a Kerberos login that was accepted.
#pragma once

#include "handlers/SSOHandler.h"
#include "platform/OsTypes.h"

namespace morwen {

// Owns the context. The expiry is that of the user's ticket, or unknown when it could not be read: the package reports
// local time, and the expiry is the instant that it meant then.
class SSPIStaticToken : public StaticToken {
public:
    // Takes the context over once the constructor has returned. Throws SSOException for a null pointer.
    SSPIStaticToken(const CtxtHandle* i_pContextHandle, const SSOHandlerPtr& i_pHandler);

    void Impersonate() override;
    void Revert() override;
    bool Expired(SDateTime i_now) override;
    // A whole handshake inside the process, the client acting as the token's user and the server as the process.
    bool RenegotiateImpl() override;
    STimeSpan GetTimeToExpiry(SDateTime i_now) override;
    STimeSpan GetLifetime() override;
    SWCharString GetAuthority() override;

private:
    ~SSPIStaticToken() override;

    bool IsSameUser(SSPIStaticToken& io_other);
    void TakeOver(SSPIStaticToken& io_other);

    CtxtHandle m_handle S_GUARDED_BY(m_lock){};
};

}  // namespace morwen
