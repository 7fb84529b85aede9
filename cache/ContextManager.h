// What the core asks of the cached security contexts.
#pragma once

#include "cache/SecContextCache.h"

namespace morwen {

// May be used by many threads at once. Failures are SSOExceptions.
class ContextManager : public Harrowlib201::CRefCount {
public:
    // Throws SSOException for a null cache.
    explicit ContextManager(const Harrowlib201::CSmartRefCountPtr<SecContextCache>& i_pContextCache);

    // The calling thread goes on as the user of the context. A context that has expired is refused.
    void Impersonate(const SWCharString& i_ssKey);
    // The calling thread is itself again, whether the context has expired or not.
    void Revert(const SWCharString& i_ssKey);

    bool AddAssociation(const SWCharString& i_ssKey, const SWCharString& i_ssNewKey);
    bool IsValid(const SWCharString& i_ssKey);
    bool Remove(const SWCharString& i_ssKey);
    void Clear();
    void StartUpdateThread();
    void StopUpdateThread();

private:
    Harrowlib201::CSmartRefCountPtr<SecContextCache> m_pContextCache;
};

}  // namespace morwen
