#include "sessions/SessionCache.h"

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"

namespace morwen {

using namespace Harrowlib201;

SessionCache::~SessionCache() {
    S_TRACE("ssoplugin: SessionCache::~SessionCache() -- Shutting down with %1 partially formed sessions in cache.",
            static_cast<uint64_t>(m_mapSessions.size()));
}

SSOSessionPtr SessionCache::CreateSession(const SSOHandlerPtr& i_pHandler, const ParasSeq* i_pLoginParameters) {
    try {
        SSOSessionPtr pSession = i_pHandler->CreateSession(i_pLoginParameters);
        S_ASSERT_MSG(pSession, "ssoplugin: SessionCache::CreateSession() -- NULL Session object returned!");
        if (!pSession) {
            throw SSOException(SSO_ERROR);
        }
        Insert(pSession);
        return pSession;
    } catch (const SSOException&) {
        S_TRACE("ssoplugin: SessionCache::CreateSession() -- Could not create a new session object!");
        throw;
    }
}

void SessionCache::Insert(const SSOSessionPtr& i_pSession) {
    const CSmartWriteLocker locker(*this);
    if (!m_mapSessions.emplace(i_pSession->GetIdentifier(), i_pSession).second) {
        S_FAIL("ssoplugin: SessionCache::CreateSession() -- Session Key already in use!");
        throw SSOException(SSO_ERROR);
    }
}

SSOSessionPtr SessionCache::GetSession(const SSOSession::SessionIdentifier& i_identifier) {
    const CSmartReadLocker locker(*this);
    const auto found = m_mapSessions.find(i_identifier);
    if (found == m_mapSessions.end()) {
        S_TRACE("ssoplugin: SessionCache::GetSession() -- No session found for key");
        return nullptr;
    }
    const SSOSessionPtr& pSession = found->second;
    S_ASSERT_MSG(pSession, "ssoplugin: SessionCache::GetSession() -- Key is valid, but found a NULL session!");
    if (!pSession) {
        throw SSOException(SSO_ERROR);
    }
    return pSession;
}

void SessionCache::LimitAnybodys(const SSOSession::SessionIdentifier& i_identifier) {
    constexpr size_t kMostAnybodys = 1024;
    SSOSessionPtr pOldest;  // ends after the lock
    const CSmartWriteLocker locker(*this);
    m_anybodys.push_back(i_identifier);
    for (size_t nTries = m_anybodys.size(); m_anybodys.size() > kMostAnybodys && nTries != 0; --nTries) {
        const SSOSession::SessionIdentifier identifier = m_anybodys.front();
        const auto oldest = m_mapSessions.find(identifier);
        if (oldest != m_mapSessions.end() && !oldest->second->TryBegin()) {
            // A call is at work on it, and it may be no more than anybody's afterwards: its turn comes again.
            m_anybodys.push_back(identifier);
            m_anybodys.pop_front();
            continue;
        }
        m_anybodys.pop_front();
        if (oldest == m_mapSessions.end()) {
            continue;
        }
        if (!oldest->second->IsAnybodys()) {
            oldest->second->End();
            continue;
        }
        S_TRACE(
            "ssoplugin: SessionCache::LimitAnybodys() -- A login that was begun without a ticket is given up for newer "
            "ones.");
        pOldest = oldest->second;  // stays closed to a call that has found it before
        m_mapSessions.erase(oldest);
        break;
    }
}

void SessionCache::ReleaseSession(const SSOSession::SessionIdentifier& i_identifier) {
    SSOSessionPtr pSession;  // the last reference goes after the lock, because ending a session calls the package
    const CSmartWriteLocker locker(*this);
    const auto found = m_mapSessions.find(i_identifier);
    if (found == m_mapSessions.end()) {
        S_TRACE("ssoplugin: SessionCache::ReleaseSession() -- No session found for key");
        return;
    }
    pSession = found->second;
    S_ASSERT_MSG(pSession, "ssoplugin: SessionCache::ReleaseSession() -- Key is valid but found a NULL session!");
    if (!pSession) {
        throw SSOException(SSO_ERROR);
    }
    if (m_mapSessions.erase(i_identifier) == 0) {
        S_FAIL("ssoplugin: SessionCache::RemoveKey() -- Key exists, but could not remove it!");
        throw SSOException(SSO_ERROR);
    }
}

}  // namespace morwen
