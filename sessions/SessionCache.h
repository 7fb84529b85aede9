// The logins in progress, by identifier.
#pragma once

#include <deque>
#include <map>

#include "handlers/SSOHandler.h"
#include "handlers/SSOSession.h"
#include "harrow/locks/CRWLock.h"

namespace morwen {

// Is its own reader/writer lock. A session that was handed out stays alive when another thread releases it here.
class SessionCache : private Harrowlib201::CRWLock {
public:
    SessionCache() = default;
    ~SessionCache();
    SessionCache(const SessionCache&) = delete;
    SessionCache& operator=(const SessionCache&) = delete;

    // Lets the handler make a session, and keeps it. Throws SSOException.
    SSOSessionPtr CreateSession(const SSOHandlerPtr& i_pHandler, const ParasSeq* i_pLoginParameters);

    // Null when there is none.
    SSOSessionPtr GetSession(const SSOSession::SessionIdentifier& i_identifier);

    // For a session that was begun without a ticket. Strangers may begin as many as they like, so that beyond 1,024 the
    // oldest goes, unless somebody has shown a ticket meanwhile.
    void LimitAnybodys(const SSOSession::SessionIdentifier& i_identifier);

    // Does nothing when there is none.
    void ReleaseSession(const SSOSession::SessionIdentifier& i_identifier);

private:
    void Insert(const SSOSessionPtr& i_pSession);

    std::map<SSOSession::SessionIdentifier, SSOSessionPtr> m_mapSessions;
    std::deque<SSOSession::SessionIdentifier> m_anybodys;  // the oldest first; some have gone, or come further
};

}  // namespace morwen
