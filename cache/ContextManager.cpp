#include "cache/ContextManager.h"

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using namespace Harrowlib201;

ContextManager::ContextManager(const CSmartRefCountPtr<SecContextCache>& i_pContextCache)
    : m_pContextCache(i_pContextCache) {
    S_ASSERT(m_pContextCache);
    if (!m_pContextCache) {
        throw SSOException(SSO_ERROR);
    }
}

void ContextManager::Impersonate(const SWCharString& i_ssKey) {
    const TokenAtWork token = m_pContextCache->Find(i_ssKey);
    if (!token || token->IsExpired(SDateTime::GetCurrentDateTime())) {
        S_REASON("ssoplugin: ContextManager::Impersonate() -- token for %1 not found or expired.", i_ssKey);
        throw SSOException(SSO_ERROR, kMsgContextUnusable);
    }
    token->Impersonate();
}

void ContextManager::Revert(const SWCharString& i_ssKey) {
    const TokenAtWork pToken = m_pContextCache->Find(i_ssKey);
    if (!pToken.IsFound()) {
        S_REASON("ssoplugin: ContextManager::Revert() -- token for %1 not found.", i_ssKey);
        throw SSOException(SSO_ERROR, kMsgNoContext);
    }
    S_ASSERT(pToken);
    if (!pToken) {
        throw SSOException(SSO_ERROR);
    }
    pToken->Revert();
}

bool ContextManager::AddAssociation(const SWCharString& i_ssKey, const SWCharString& i_ssNewKey) {
    return m_pContextCache->AddAssociation(i_ssKey, i_ssNewKey);
}

bool ContextManager::IsValid(const SWCharString& i_ssKey) {
    return m_pContextCache->IsValid(i_ssKey);
}

bool ContextManager::Remove(const SWCharString& i_ssKey) {
    return m_pContextCache->Remove(i_ssKey);
}

void ContextManager::Clear() {
    m_pContextCache->Clear();
}

void ContextManager::StartUpdateThread() {
    m_pContextCache->StartUpdateThread();
}

void ContextManager::StopUpdateThread(long i_nMostMilliseconds) {
    m_pContextCache->StopUpdateThread(i_nMostMilliseconds);
}

}  // namespace morwen
