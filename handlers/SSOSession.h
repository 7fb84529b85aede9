// A login in progress.
#pragma once

#include <atomic>
#include <cstdint>

#include "handlers/StaticToken.h"
#include "harrow/lifetime/CRefCount.h"
#include "params/Parameters.h"

namespace morwen {

class SSOHandler;

// Kept by the session cache between the steps of a login; used by one login step at a time, which TryBegin grants.
class SSOSession : public Harrowlib201::CRefCount {
public:
    // The number behind a session key.
    class SessionIdentifier {
    public:
        SessionIdentifier() noexcept = default;
        // The session's address: unique among live sessions.
        explicit SessionIdentifier(const SSOSession& i_session) noexcept;
        // From a session key. Throws SSOException when the text is not a decimal number.
        explicit SessionIdentifier(const SWCharString& i_ssKey);

        // The session key.
        SWCharString ToString() const;

        friend bool operator==(const SessionIdentifier& i_left, const SessionIdentifier& i_right) noexcept {
            return i_left.m_nValue == i_right.m_nValue;
        }
        friend bool operator<(const SessionIdentifier& i_left, const SessionIdentifier& i_right) noexcept {
            return i_left.m_nValue < i_right.m_nValue;
        }

    private:
        uint64_t m_nValue = 0;  // no session has it
    };

    // Whether the caller may work with this session: nobody else does until End. A new session is in its maker's hands.
    bool TryBegin() noexcept { return !m_bInUse.exchange(true, std::memory_order_acquire); }
    void End() noexcept { m_bInUse.store(false, std::memory_order_release); }

    // Hands the established security context over to a new token. Throws SSOException.
    virtual StaticTokenPtr GetStaticToken() = 0;

    // The provider type, as the handler factory knows it.
    SWCharString GetType() const { return m_ssType; }
    SessionIdentifier GetIdentifier() const noexcept { return SessionIdentifier(*this); }
    // Those that the caller gave when the login began.
    const Parameters& GetParameters() const noexcept { return m_parameters; }

protected:
    // The handler is the one that makes it, and its token after it.
    SSOSession(const ParasSeq* i_pLoginParameters, const Harrowlib201::CSmartRefCountPtr<SSOHandler>& i_pHandler);
    ~SSOSession() override;

    const Harrowlib201::CSmartRefCountPtr<SSOHandler> m_pHandler;

    uint16_t m_nPassCount = 0;  // for derived sessions: how many steps have begun
    SWCharString m_ssType = u"Undefined"_ss;

private:
    std::atomic<bool> m_bInUse{true};
    Parameters m_parameters;
};

using SSOSessionPtr = Harrowlib201::CSmartRefCountPtr<SSOSession>;

}  // namespace morwen
