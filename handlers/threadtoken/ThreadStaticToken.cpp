#include "handlers/threadtoken/ThreadStaticToken.h"

#include "errors/SSOException.h"
#include "handlers/ActingLevel.h"
#include "handlers/ActingThreads.h"
#include "handlers/SystemErrorText.h"
#include "handlers/SystemFailure.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using namespace Harrowlib201;

ThreadStaticToken::ThreadStaticToken(HANDLE i_pToken, const SSOHandlerPtr& i_pHandler)
    : StaticToken(u"THREADTOKEN", i_pHandler),
      m_pToken("ssoplugin: ThreadStaticToken::~ThreadStaticToken() -- Failed to close handle!") {
    S_ASSERT_MSG(i_pToken, "ssoplugin: ThreadStaticToken::ThreadStaticToken() -- NULL handle!");
    if (i_pToken == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    m_pToken.Reset(i_pToken);
}

ThreadStaticToken::~ThreadStaticToken() {
    S_ASSERT_TEXT(m_pToken.get() != nullptr,
                  "ssoplugin: ThreadStaticToken::~ThreadStaticToken() -- No handle to close! (m_pToken)");
}

void ThreadStaticToken::Impersonate() {
    S_ASSERT_TEXT(m_pToken.get() != nullptr, "m_pToken");
    const ActingThreads::Place place;
    const CSmartWriteLocker locker(m_lock);
    if (m_pToken.get() == nullptr || !MayBeCounted()) {
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    if (!Platform::Tokens().ImpersonateLoggedOnUser(m_pToken.get())) {
        const DWORD nError = Platform::Kernel().GetLastError();
        S_REASON("ssoplugin: ThreadStaticToken::Impersonate() -- Could not impersonate: %1", GetLastErrorText());
        ThrowSystemFailure(nError, kMsgImpersonation);
    }
    if (!IsThreadActing()) {
        const bool bItself = Platform::Tokens().RevertToSelf() != FALSE;
        place.Refuse(bItself);
        S_ASSERT_MSG(bItself, "ThreadStaticToken::Impersonate() failed to revert to security context of process.");
        S_TRACE("ssoplugin: ThreadStaticToken::Impersonate() -- Could not impersonate: %1", GetLastErrorText());
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    place.Begin(*this);
}

void ThreadStaticToken::Revert() {
    const CSmartWriteLocker locker(m_lock);
    if (!Platform::Tokens().RevertToSelf()) {
        S_REASON("ssoplugin: ThreadStaticToken::Revert() -- Could not revert: %1", GetLastErrorText());
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    ActingThreads::End();
}

bool ThreadStaticToken::Expired(SDateTime i_now) {
    return ExpiredByConfiguration(i_now);
}

bool ThreadStaticToken::RenegotiateImpl() {
    return false;
}

STimeSpan ThreadStaticToken::GetTimeToExpiry(SDateTime) {
    return STimeSpan::Largest();
}

STimeSpan ThreadStaticToken::GetLifetime() {
    return STimeSpan::Largest();
}

}  // namespace morwen
