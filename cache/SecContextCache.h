// The security contexts of users who are logged on, by key.
#pragma once

#include <map>

#include "cache/StaticToken.h"

namespace morwen {

// May be used by many threads at once.
class SecContextCache : public Harrowlib201::CRefCount {
public:
    // The argument is reserved and has no effect.
    explicit SecContextCache(int i_nReserved);

    // Keeps the token under the decimal form of its address, which is returned and written to o_ssKey.
    SWCharString Insert(SWCharString& o_ssKey, const StaticTokenPtr& i_pToken);

    // Renames: afterwards only the new key finds the token, in place of any that had the key. False when there is none.
    bool AddAssociation(const SWCharString& i_ssKey, const SWCharString& i_ssNewKey);

    // Takes the token out. False when there is none.
    bool Extract(const SWCharString& i_ssKey, StaticTokenPtr& o_pToken);

    bool IsValid(const SWCharString& i_ssKey);  // is there one, and has it not expired?
    bool Remove(const SWCharString& i_ssKey);   // false when there is none
    void Clear();

    // The token under the key, with the map locked for reading while the operation runs, so that a removal waits for
    // it. The operation receives a null pointer when there is no such key.
    template <class Operation>
    auto WithToken(const SWCharString& i_ssKey, Operation i_operation) {
        const Harrowlib201::CSmartReadLocker locker(m_lock);
        return i_operation(Lookup(i_ssKey));
    }

private:
    struct Found {
        bool m_bPresent = false;
        StaticTokenPtr m_pToken;
    };

    ~SecContextCache() override;
    Found Lookup(const SWCharString& i_ssKey) S_REQUIRES_SHARED(m_lock);

    std::map<SWCharString, StaticTokenPtr> m_mapCachedContexts S_GUARDED_BY(m_lock);
    Harrowlib201::CRWLock m_lock;
};

}  // namespace morwen
