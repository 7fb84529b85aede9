// The error records of the host's threads.
#pragma once

#include <set>

#include "errors/SSOException.h"
#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/threads/JTC.h"
#include "morwen/morwenplugin.h"

namespace morwen {

// Keeps the newest record of each thread in a thread-local slot, and every record that no thread has taken yet in a
// set, so that none is lost when the package ends. May be used by many threads at once.
class ErrorManager : public Harrowlib201::CRefCount {
public:
    // Throws JTCSystemCallException when there is no slot.
    ErrorManager();

    // Makes a record of the exception and puts it into the calling thread's slot. A record that stood there is not
    // freed: it stays in the set until this object ends.
    void SetThreadError(const SSOException& i_exception) noexcept;

    // Takes the calling thread's record out; it belongs to the caller, and goes back through FreeErrorRecord. Null if
    // there is none.
    SSOError* GetThreadError() noexcept;

    // Takes the calling thread's record out and frees it.
    void DiscardThreadError() noexcept;

    // A copy of the message text for the host (FreeHostText); null when there is no such message. Throws SSOException
    // when memory is short.
    SSOChar* GetErrorMessage(uint32_t i_nMessageId);

private:
    ~ErrorManager() override;

    Harrowlib201::JTCThreadKey m_slot;
    std::set<SSOError*> m_setErrors S_GUARDED_BY(m_lock);
    Harrowlib201::CRWLock m_lock;
};

}  // namespace morwen
