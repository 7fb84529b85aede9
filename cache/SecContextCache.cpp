#include "cache/SecContextCache.h"

#include "harrow/STrace.h"
#include "harrow/SWCharStringConv.h"

namespace morwen {

using namespace Harrowlib201;

SecContextCache::SecContextCache(int) {}

SecContextCache::~SecContextCache() {
    const CSmartReadLocker locker(m_lock);
    S_TRACE("ssoplugin: SecContextCache::~SecContextCache() -- Shutting down cleanly with %1 cached contexts",
            static_cast<uint64_t>(m_mapCachedContexts.size()));
}

SWCharString SecContextCache::Insert(SWCharString& o_ssKey, const StaticTokenPtr& i_pToken) {
    o_ssKey = SWCharStringConv::ToString(uint64_t{reinterpret_cast<uintptr_t>(i_pToken.get())});
    const CSmartWriteLocker locker(m_lock);
    m_mapCachedContexts.insert_or_assign(o_ssKey, i_pToken);
    S_TRACE("ssoplugin: SecContextCache::Insert() -- %1 contexts now in cache.",
            static_cast<uint32_t>(m_mapCachedContexts.size()));
    return o_ssKey;
}

bool SecContextCache::AddAssociation(const SWCharString& i_ssKey, const SWCharString& i_ssNewKey) {
    StaticTokenPtr pReplaced;  // the last reference goes after the lock
    const CSmartWriteLocker locker(m_lock);
    const auto found = m_mapCachedContexts.find(i_ssKey);
    if (found == m_mapCachedContexts.end()) {
        S_TRACE("ssoplugin: SecContextCache::AddAssociation() -- Token for %1 is not in cache.", i_ssKey);
        return false;
    }
    if (i_ssKey == i_ssNewKey) {
        return true;
    }
    // The new entry first: should memory be short, the old one still stands.
    const StaticTokenPtr pToken = found->second;
    StaticTokenPtr& pEntry = m_mapCachedContexts[i_ssNewKey];
    pReplaced = pEntry;
    pEntry = pToken;
    m_mapCachedContexts.erase(i_ssKey);
    return true;
}

bool SecContextCache::Extract(const SWCharString& i_ssKey, StaticTokenPtr& o_pToken) {
    const CSmartWriteLocker locker(m_lock);
    const Found found = Lookup(i_ssKey);
    if (!found.m_pToken) {
        return false;
    }
    S_ASSERT_TEXT(m_mapCachedContexts.erase(i_ssKey) == 1, "m_mapCachedContexts.RemoveKey( i_ssKey )");
    o_pToken = found.m_pToken;
    return true;
}

bool SecContextCache::IsValid(const SWCharString& i_ssKey) {
    return WithToken(i_ssKey, [](const Found& i_found) {
        return i_found.m_pToken && !i_found.m_pToken->Expired(SDateTime::GetCurrentDateTime());
    });
}

bool SecContextCache::Remove(const SWCharString& i_ssKey) {
    StaticTokenPtr pToken;  // the last reference goes after the lock, because ending a context calls the package
    const CSmartWriteLocker locker(m_lock);
    const Found found = Lookup(i_ssKey);
    pToken = found.m_pToken;
    return m_mapCachedContexts.erase(i_ssKey) != 0;
}

void SecContextCache::Clear() {
    decltype(m_mapCachedContexts) mapReleased;  // ended after the lock
    const CSmartWriteLocker locker(m_lock);
    mapReleased.swap(m_mapCachedContexts);
}

SecContextCache::Found SecContextCache::Lookup(const SWCharString& i_ssKey) {
    const auto found = m_mapCachedContexts.find(i_ssKey);
    return found == m_mapCachedContexts.end() ? Found{} : Found{true, found->second};
}

}  // namespace morwen
