#include "cache/SecContextCache.h"

#include <cstring>
#include <utility>
#include <vector>

#include "cache/SecContextUpdateThread.h"
#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"
#include "morwen/morwenplugin.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

SecContextCache::SecContextCache(int) {}

SecContextCache::~SecContextCache() {
    const CSmartReadLocker locker(m_lock);
    S_TRACE("ssoplugin: SecContextCache::~SecContextCache() -- Shutting down cleanly with %1 cached contexts",
            static_cast<uint64_t>(m_mapCachedContexts.size()));
}

SWCharString SecContextCache::Insert(SWCharString& o_ssKey, const StaticTokenPtr& i_pToken) {
    StartUpdateThread();
    o_ssKey = SWCharStringConv::ToString(uint64_t{reinterpret_cast<uintptr_t>(i_pToken.get())});
    StaticTokenPtr pReplaced;  // the last reference goes after the lock
    const CSmartWriteLocker locker(m_lock);
    pReplaced = Put(o_ssKey, i_pToken);
    S_TRACE("ssoplugin: SecContextCache::Insert() -- %1 contexts now in cache.",
            static_cast<uint32_t>(m_mapCachedContexts.size()));
    return o_ssKey;
}

bool SecContextCache::AddAssociation(std::u16string_view i_key, const SWCharString& i_ssNewKey) {
    StaticTokenPtr pReplaced;  // the last reference goes after the lock
    const CSmartWriteLocker locker(m_lock);
    const auto found = EntryOf(i_key);
    if (found == m_mapCachedContexts.end()) {
        S_TRACE("ssoplugin: SecContextCache::AddAssociation() -- Token for %1 is not in cache.", i_key);
        return false;
    }
    if (i_key == i_ssNewKey) {
        return true;
    }
    // The new entry first: should memory be short, the old one still stands.
    pReplaced = Put(i_ssNewKey, found->second);
    static_cast<void>(Take(found));
    return true;
}

bool SecContextCache::Extract(const SWCharString& i_ssKey, StaticTokenPtr& o_pToken) {
    const CSmartWriteLocker locker(m_lock);
    const auto found = EntryOf(i_ssKey);
    if (found == m_mapCachedContexts.end() || !found->second) {
        return false;
    }
    const size_t nBefore = m_mapCachedContexts.size();
    o_pToken = Take(found);
    S_ASSERT_TEXT(m_mapCachedContexts.size() + 1 == nBefore, "m_mapCachedContexts.RemoveKey( i_ssKey )");
    return true;
}

bool SecContextCache::IsValid(std::u16string_view i_key) {
    const CSmartReadLocker locker(m_lock);
    const KeyIndex::Sought sought = m_index.Seek(i_key);
    const SDateTime now = SDateTime::GetCurrentDateTime();  // while memory brings the place
    const KeyIndex::Slot* const pFound = m_index.Lookup(sought);
    if (pFound == nullptr) {
        return false;
    }
    if (pFound->m_expiry != StaticToken::kUnknown && now <= pFound->m_expiry) {
        return true;  // and the token, which lies elsewhere in memory, need not be asked
    }
    const StaticTokenPtr& pToken = pFound->m_entry->second;
    return pToken && !pToken->Expired(now);
}

bool SecContextCache::Remove(std::u16string_view i_key) {
    StaticTokenPtr pToken;  // the last reference goes after the lock, because ending a context calls the package
    {
        const CSmartWriteLocker locker(m_lock);
        const auto found = EntryOf(i_key);
        if (found == m_mapCachedContexts.end()) {
            return false;
        }
        pToken = Take(found);
    }
    if (pToken) {
        pToken->AwaitIdle();
    }
    return true;
}

void SecContextCache::Clear() {
    KeyIndex::Map mapReleased;  // ended after the lock
    const auto indexReleased = [&] {
        const CSmartWriteLocker locker(m_lock);
        mapReleased.swap(m_mapCachedContexts);
        return m_index.Clear();
    }();
    const auto forEach = [&mapReleased](const auto& i_do) {
        for (auto& [ssKey, pToken] : mapReleased) {
            if (pToken) {
                i_do(pToken);
            }
        }
    };
    // Nobody finds them any more, so none begins to be at work. What the others hold is not kept while one is.
    forEach([](StaticTokenPtr& io_pToken) {
        if (!io_pToken->IsAtWork()) {
            io_pToken = nullptr;
        }
    });
    forEach([](const StaticTokenPtr& i_pToken) { i_pToken->AwaitIdle(); });
}

TokenAtWork SecContextCache::Find(std::u16string_view i_key) {
    const CSmartReadLocker locker(m_lock);
    return TokenAtWork(Lookup(i_key));
}

const StaticTokenPtr* SecContextCache::Lookup(std::u16string_view i_key) {
    const auto found = EntryOf(i_key);
    return found == m_mapCachedContexts.end() ? nullptr : &found->second;
}

KeyIndex::Map::iterator SecContextCache::EntryOf(std::u16string_view i_key) {
    return m_index.Find(i_key, m_mapCachedContexts.end());
}

StaticTokenPtr SecContextCache::Put(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken) {
    const auto [entry, bNew] = m_mapCachedContexts.try_emplace(i_ssKey, i_pToken);
    if (!bNew) {
        StaticTokenPtr pReplaced = std::exchange(entry->second, i_pToken);
        m_index.Update(entry);
        return pReplaced;
    }
    try {
        m_index.Add(entry);
    } catch (...) {
        m_mapCachedContexts.erase(entry);
        throw;
    }
    return nullptr;
}

StaticTokenPtr SecContextCache::Take(KeyIndex::Map::iterator i_entry) noexcept {
    m_index.Remove(i_entry);
    StaticTokenPtr pToken = std::move(i_entry->second);
    m_mapCachedContexts.erase(i_entry);
    return pToken;
}

std::map<SWCharString, StaticTokenPtr> SecContextCache::Snapshot() {
    constexpr size_t kPart = 256;
    std::map<SWCharString, StaticTokenPtr> mapSnapshot;
    std::vector<std::pair<SWCharString, StaticTokenPtr>> part;
    part.reserve(kPart);
    do {
        {
            const CSmartReadLocker locker(m_lock);
            auto it = part.empty() ? m_mapCachedContexts.begin() : m_mapCachedContexts.upper_bound(part.back().first);
            for (part.clear(); part.size() < kPart && it != m_mapCachedContexts.end(); ++it) {
                part.emplace_back(*it);
            }
        }
        for (const auto& entry : part) {
            mapSnapshot.insert(mapSnapshot.end(), entry);
        }
    } while (part.size() == kPart);
    return mapSnapshot;
}

bool SecContextCache::RemoveExpired(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken, SDateTime i_now) {
    const CSmartWriteLocker locker(m_lock);
    if (!i_pToken->Expired(i_now)) {
        return false;
    }
    // Work begins under this lock alone, so nobody can begin to act as a user whose context is being removed.
    if (i_pToken->IsInUse()) {
        S_TRACE("ssoplugin: SecContextUpdateThread::CleanUp() -- %1 is expired but impersonated -- remove later.",
                i_ssKey);
        return true;
    }
    const auto found = EntryOf(i_ssKey);
    // The host may have given the key to another context meanwhile.
    if (found != m_mapCachedContexts.end() && found->second == i_pToken) {
        static_cast<void>(Take(found));  // the pass has it too, so its end comes after the lock
        S_TRACE("ssoplugin: SecContextUpdateThread::CleanUp() -- %1 has been removed.", i_ssKey);
    }
    return true;
}

void SecContextCache::NoteRenewal(const SWCharString& i_ssKey) {
    const CSmartWriteLocker locker(m_lock);
    if (const auto found = EntryOf(i_ssKey); found != m_mapCachedContexts.end()) {
        m_index.Update(found);
    }
}

// ---- The update thread ----

JTCHandleT<TerminatingThread> SecContextCache::MakeUpdateThread() {
    return MakeCounted<SecContextUpdateThread>(this);
}

void SecContextCache::CreateUpdateThread() {
    try {
        m_pUpdateThread = MakeUpdateThread();
    } catch (const std::bad_alloc&) {
        m_pUpdateThread = nullptr;
        S_FAIL("ssoplugin: SecContextCache::StartUpdateThread() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    } catch (const JTCException& exception) {
        // A thread of the host is not known to the thread library, which then makes no thread for it.
        if (std::strcmp(exception.getName(), "JTCUnknownThreadException") == 0) {
            CreateUpdateThreadAdopted();
        }
    } catch (const SSOException&) {
        m_pUpdateThread = nullptr;
        throw;
    } catch (...) {
        m_pUpdateThread = nullptr;
        S_FAIL("ssoplugin: SecContextCache::StartUpdateThread() -- Unknown exception");
        throw SSOException(SSO_ERROR);
    }
}

void SecContextCache::CreateUpdateThreadAdopted() {
    try {
        const JTCAdoptCurrentThread adopted;
        m_pUpdateThread = MakeUpdateThread();
    } catch (const std::bad_alloc&) {
        m_pUpdateThread = nullptr;
        S_FAIL("ssoplugin: SecContextCache::StartUpdateThread() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    } catch (...) {
        m_pUpdateThread = nullptr;
        S_FAIL("ssoplugin: SecContextCache::StartUpdateThread() -- Unknown exception");
        throw SSOException(SSO_ERROR);
    }
}

void SecContextCache::StartUpdateThread() {
    const CS_Locker locker(m_threadSection);
    if (m_pUpdateThread) {
        return;
    }
    CreateUpdateThread();
    try {
        if (m_pUpdateThread && !m_pUpdateThread->isAlive()) {
            S_TRACE("ssoplugin: SecContextCache::StartUpdateThread() -- Starting update thread.");
            m_pUpdateThread->start();
            m_nProcess = Platform::Kernel().GetCurrentProcessId();
            S_TRACE("ssoplugin: SecContextCache::StartUpdateThread() -- Update thread started.");
        }
    } catch (...) {
        S_FAIL("ssoplugin: SecContextCache::StartUpdateThread() -- Could not start update thread!");
        throw SSOException(SSO_ERROR);
    }
}

void SecContextCache::StopUpdateThread() {
    constexpr long kJoinMilliseconds = 5000;
    const CS_Locker locker(m_threadSection);
    S_TRACE("ssoplugin: SecContextCache::StopUpdateThread() -- stopping the thread.");
    if (m_pUpdateThread) {
        m_pUpdateThread->stop();
    }
    const bool bForked = m_nProcess != Platform::Kernel().GetCurrentProcessId();
    while (!bForked && m_pUpdateThread && m_pUpdateThread->isAlive()) {
        try {
            m_pUpdateThread->join(kJoinMilliseconds);
        } catch (const JTCInterruptedException&) {
            continue;  // this thread's business, which it learns elsewhere
        } catch (...) {
            S_FAIL("ssoplugin: SecContextCache::StopUpdateThread() -- Unexpected exception while joining the thread.");
            break;
        }
    }
    if (m_pUpdateThread && m_pUpdateThread->isAlive()) {
        // In a forked process it does not exist. It keeps what it works on.
        S_TRACE("ssoplugin: SecContextCache::StopUpdateThread() -- The thread does not end; going on without it.");
        m_pUpdateThread->addRef();
        addRef();
    }
    m_pUpdateThread = nullptr;
}

}  // namespace morwen
