// The security contexts of users who are logged on, by key.
#pragma once

#include <map>

#include "cache/KeyIndex.h"
#include "cache/TokenAtWork.h"
#include "handlers/StaticToken.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/threads/TerminatingThread.h"
#include "platform/OsTypes.h"

namespace morwen {

// May be used by many threads at once.
class SecContextCache : public Harrowlib201::CRefCount {
public:
    // The argument is reserved and has no effect.
    explicit SecContextCache(int i_nReserved);

    // Starts the update thread unless there is one (or was one that ended by itself: it is not replaced). Throws
    // SSOException when it cannot be started; a thread that could be made but not started is not tried again.
    void StartUpdateThread();
    // Stops the update thread and waits for its end, which a renewal under way may put off. Must come before the last
    // reference goes. A thread that cannot be waited for, or was left behind by a fork, keeps this cache.
    void StopUpdateThread();

    // Keeps the token under the decimal form of its address, which is returned and written to o_ssKey. Starts the
    // update thread first.
    SWCharString Insert(SWCharString& o_ssKey, const StaticTokenPtr& i_pToken);

    // Renames: afterwards only the new key finds the token, in place of any that had the key. False when there is none.
    bool AddAssociation(std::u16string_view i_key, const SWCharString& i_ssNewKey);

    // Takes the token out. False when there is none.
    bool Extract(const SWCharString& i_ssKey, StaticTokenPtr& o_pToken);

    bool IsValid(std::u16string_view i_key);  // is there one, and has it not expired?
    // Both wait for whoever is at work with what they release, and for nobody else.
    bool Remove(std::u16string_view i_key);  // false when there is none
    // Takes the lock for a moment, however many there are, and a microsecond or two for each without it.
    void Clear();

    // The token under the key, for work with it: no lock of the cache is held, only this token is kept from its end.
    TokenAtWork Find(std::u16string_view i_key);

    // For the update thread: what is cached now. Taken in parts, so that nobody waits long for the lock: a context that
    // comes or is renamed meanwhile may be missing.
    std::map<SWCharString, StaticTokenPtr> Snapshot();
    // For the update thread: removes the token if it is still under the key, still expired and used by nobody. False
    // when it has been renewed meanwhile.
    bool RemoveExpired(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken, SDateTime i_now);

    // For the update thread: the token under the key has been renewed. If the host has changed the key in this moment,
    // lookups go by the expiry of before, and past that ask the token.
    void NoteRenewal(const SWCharString& i_ssKey);

protected:
    ~SecContextCache() override;
    // Makes the thread, not started; throws what the thread library throws.
    virtual Harrowlib201::JTCHandleT<Harrowlib201::TerminatingThread> MakeUpdateThread();

private:
    void CreateUpdateThread() S_REQUIRES(m_threadSection);
    void CreateUpdateThreadAdopted() S_REQUIRES(m_threadSection);
    const StaticTokenPtr* Lookup(std::u16string_view i_key) S_REQUIRES_SHARED(m_lock);
    // Null where nothing was replaced. Throws std::bad_alloc and leaves everything as it was.
    StaticTokenPtr Put(const SWCharString& i_ssKey, const StaticTokenPtr& i_pToken) S_REQUIRES(m_lock);
    StaticTokenPtr Take(KeyIndex::Map::iterator i_entry) noexcept S_REQUIRES(m_lock);
    // The map's end where there is none.
    KeyIndex::Map::iterator EntryOf(std::u16string_view i_key) S_REQUIRES_SHARED(m_lock);

    KeyIndex::Map m_mapCachedContexts S_GUARDED_BY(m_lock);
    KeyIndex m_index S_GUARDED_BY(m_lock);  // of the same entries
    Harrowlib201::CRWLock m_lock;
    Harrowlib201::JTCHandleT<Harrowlib201::TerminatingThread> m_pUpdateThread S_GUARDED_BY(m_threadSection);
    DWORD m_nProcess S_GUARDED_BY(m_threadSection) = 0;  // where the thread runs
    Harrowlib201::CS_Wrapper m_threadSection;
};

}  // namespace morwen
