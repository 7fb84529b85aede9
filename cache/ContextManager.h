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
    void Impersonate(std::u16string_view i_key);
    // The calling thread is itself again, whether the context has expired or not.
    void Revert(std::u16string_view i_key);

    bool AddAssociation(std::u16string_view i_key, const SWCharString& i_ssNewKey);
    bool IsValid(std::u16string_view i_key);
    bool Remove(std::u16string_view i_key);
    void Clear();
    void StartUpdateThread();
    void StopUpdateThread();

private:
    Harrowlib201::CSmartRefCountPtr<SecContextCache> m_pContextCache;
};

}  // namespace morwen
