#include "errors/ErrorManager.h"

#include <new>

#include "errors/ErrorRecord.h"
#include "errors/HostText.h"
#include "harrow/log/SResManager.h"
#include "harrow/log/STrace.h"

namespace morwen {

using namespace Harrowlib201;

ErrorManager::ErrorManager() {
    try {
        m_slot = JTCTSS::allocate();
    } catch (const JTCSystemCallException& exception) {
        S_TRACE("ssoplugin: ErrorManager::ErrorManager() -- Error allocating thread local storage.");
        S_TRACE("ssoplugin: ErrorManager::ErrorManager() -- %1", exception.what());
        throw;
    }
}

ErrorManager::~ErrorManager() {
    JTCTSS::release(m_slot);
    const CSmartWriteLocker locker(m_lock);
    for (SSOError* pError : m_setErrors) {
        FreeErrorRecord(pError);
    }
    m_setErrors.clear();
}

void ErrorManager::SetThreadError(const SSOException& i_exception) noexcept {
    SSOError* pError = MakeErrorRecord(i_exception);
    if (pError == nullptr) {
        S_FAIL("ssoplugin: ErrorManager::SetThreadError() -- NULL error struct!");
        return;
    }
    try {
        void* pvEarlier = JTCTSS::get(m_slot);
        JTCTSS::set(m_slot, pError);
        if (i_exception.GetCode() == SSO_OUT_OF_MEMORY) {
            return;  // the one static record: nobody frees it, and there may be no memory to note it down
        }
        try {
            const CSmartWriteLocker locker(m_lock);
            m_setErrors.insert(pError);
        } catch (const std::bad_alloc&) {
            // A record that the set does not know would be lost; the slot stays as it was, as if there were no record.
            JTCTSS::set(m_slot, pvEarlier);
            FreeErrorRecord(pError);
            S_FAIL("ssoplugin: ErrorManager::SetThreadError() -- NULL error struct!");
        }
    } catch (const JTCException& exception) {
        FreeErrorRecord(pError);
        S_TRACE("ssoplugin: ErrorManager::SetThreadError() -- Could not set error in thread-local storage!");
        S_TRACE("ssoplugin: ErrorManager::SetThreadError() -- %1", exception.what());
    }
}

SSOError* ErrorManager::GetThreadError() noexcept {
    try {
        auto* pError = static_cast<SSOError*>(JTCTSS::get(m_slot));
        JTCTSS::set(m_slot, nullptr);
        if (pError != nullptr) {
            const CSmartWriteLocker locker(m_lock);
            m_setErrors.erase(pError);
        }
        return pError;
    } catch (const JTCException& exception) {
        S_TRACE("ssoplugin: ErrorManager::GetThreadError() -- Could not set error in thread-local storage!");
        S_TRACE("ssoplugin: ErrorManager::GetThreadError() -- %1", exception.what());
        return nullptr;
    }
}

void ErrorManager::DiscardThreadError() noexcept {
    FreeErrorRecord(GetThreadError());
}

SSOChar* ErrorManager::GetErrorMessage(uint32_t i_nMessageId) {
    try {
        const SWCharString ssMessage = SResManager::LoadStringW(i_nMessageId, 0);
        if (ssMessage.isEmpty()) {
            return nullptr;
        }
        SSOChar* pMessage = CopyToHost(ssMessage);
        S_ASSERT(pMessage);
        if (pMessage == nullptr) {
            throw std::bad_alloc();
        }
        return pMessage;
    } catch (const std::bad_alloc&) {
        throw SSOException(SSOException::OutOfMemory());
    }
}

}  // namespace morwen
