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

void ContextManager::Impersonate(std::u16string_view i_key) {
    const TokenAtWork token = m_pContextCache->Find(i_key);
    if (!token || token->IsExpired(SDateTime::GetCurrentDateTime())) {
        S_REASON("ssoplugin: ContextManager::Impersonate() -- token for %1 not found or expired.", i_key);
        throw SSOException(SSO_ERROR, kMsgContextUnusable);
    }
    token->Impersonate();
}

void ContextManager::Revert(std::u16string_view i_key) {
    const TokenAtWork pToken = m_pContextCache->Find(i_key);
    if (!pToken.IsFound()) {
        S_REASON("ssoplugin: ContextManager::Revert() -- token for %1 not found.", i_key);
        throw SSOException(SSO_ERROR, kMsgNoContext);
    }
    S_ASSERT(pToken);
    if (!pToken) {
        throw SSOException(SSO_ERROR);
    }
    pToken->Revert();
}

bool ContextManager::AddAssociation(std::u16string_view i_key, const SWCharString& i_ssNewKey) {
    return m_pContextCache->AddAssociation(i_key, i_ssNewKey);
}

bool ContextManager::IsValid(std::u16string_view i_key) {
    return m_pContextCache->IsValid(i_key);
}

bool ContextManager::Remove(std::u16string_view i_key) {
    return m_pContextCache->Remove(i_key);
}

void ContextManager::Clear() {
    m_pContextCache->Clear();
}

void ContextManager::StartUpdateThread() {
    m_pContextCache->StartUpdateThread();
}

void ContextManager::StopUpdateThread() {
    m_pContextCache->StopUpdateThread();
}

}  // namespace morwen
