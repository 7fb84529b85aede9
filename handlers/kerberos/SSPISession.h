// A Kerberos login in progress.
#pragma once

#include <optional>
#include <span>

#include "handlers/SSOHandler.h"
#include "negotiation/AcceptingNegotiation.h"
#include "negotiation/ChannelBindings.h"
#include "negotiation/InitiatingNegotiation.h"
#include "platform/OsTypes.h"

namespace morwen {

// Owns the security context that the handshake builds.
class SSPISession : public SSOSession {
public:
    // Throws SSOException for parameters that are wrong, std::bad_alloc.
    SSPISession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler);

    // The context can still be read here, but it is the token's to end. Throws SSOException, also when the context is
    // not established.
    StaticTokenPtr GetStaticToken() override;

    bool IsAnybodys() const noexcept override { return m_accepting.IsUsed() && !HoldsContext(); }

    bool HoldsContext() const noexcept { return m_handle.dwLower != 0 || m_handle.dwUpper != 0; }
    // Valid as long as this object lives; both words are zero until a first step has made a context.
    CtxtHandle* GetContext() noexcept { return &m_handle; }

    uint16_t GetPassCount() const noexcept { return m_nPassCount; }
    // Stays at the largest count, so that a late pass is never taken for the first.
    void CountPass() noexcept;

    // Of a login that is accepted here.
    AcceptingNegotiation& Accepting() noexcept { return m_accepting; }
    // Of one that begins here: null unless its parameters ask for SPNEGO.
    InitiatingNegotiation* Initiating() noexcept { return m_initiating ? &*m_initiating : nullptr; }
    // Of the channel that the login is for, by its parameters; empty without.
    std::span<const uint8_t> ChannelRecord() const noexcept {
        return m_channel ? m_channel->Record() : std::span<const uint8_t>();
    }

    // Whether the package has said that the context is complete: only then is the peer known.
    bool IsEstablished() const noexcept { return m_bEstablished; }
    void SetEstablished() noexcept { m_bEstablished = true; }

private:
    ~SSPISession() override;

    CtxtHandle m_handle{};
    AcceptingNegotiation m_accepting;
    std::optional<InitiatingNegotiation> m_initiating;
    std::optional<const ChannelBindings> m_channel;
    bool m_bEstablished = false;
    bool m_bHandedOver = false;  // a token owns the context
};

}  // namespace morwen
