// A Kerberos login in progress.
#pragma once

#include "handlers/SSOHandler.h"
#include "negotiation/AcceptingNegotiation.h"
#include "platform/OsTypes.h"

namespace morwen {

// Owns the security context that the handshake builds.
class SSPISession : public SSOSession {
public:
    SSPISession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler);

    // The context can still be read here, but it is the token's to end. Throws SSOException, also when the context is
    // not established.
    StaticTokenPtr GetStaticToken() override;

    bool HoldsContext() const noexcept { return m_handle.dwLower != 0 || m_handle.dwUpper != 0; }
    // Valid as long as this object lives; both words are zero until a first step has made a context.
    CtxtHandle* GetContext() noexcept { return &m_handle; }

    uint16_t GetPassCount() const noexcept { return m_nPassCount; }
    // Stays at the largest count, so that a late pass is never taken for the first.
    void CountPass() noexcept;

    // Of a login that is accepted here.
    AcceptingNegotiation& Accepting() noexcept { return m_accepting; }

    // Whether the package has said that the context is complete: only then is the peer known.
    bool IsEstablished() const noexcept { return m_bEstablished; }
    void SetEstablished() noexcept { m_bEstablished = true; }

private:
    ~SSPISession() override;

    CtxtHandle m_handle{};
    AcceptingNegotiation m_accepting;
    bool m_bEstablished = false;
    bool m_bHandedOver = false;  // a token owns the context
};

}  // namespace morwen
