#include "plugin/SSOImpl.h"

#include <new>
#include <utility>

#include "errors/ErrorRecord.h"
#include "errors/HostText.h"
#include "errors/SSOException.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "harrow/log/STrace.h"
#include "plugin/LoginFrame.h"

namespace morwen {

using namespace Harrowlib201;

template <class Operation>
uint32_t SSOImpl::Run(Operation i_operation) {
    SetReason("");  // what this call fails with, no call before has failed with
    return Guarded(i_operation);
}

template <class Operation>
uint32_t SSOImpl::Guarded(Operation i_operation) {
    const CPassage passage(m_gate);
    if (!passage) {
        SetReason("the package is not started (SSOInitPackage)");
        return SSO_ERROR;
    }
    try {
        return i_operation();
    } catch (const SSOException& exception) {
        return Record(exception);
    } catch (const std::bad_alloc&) {
        return Record(SSOException::OutOfMemory());
    }
}

uint32_t SSOImpl::Record(const SSOException& i_exception) noexcept {
    if (m_pErrorManager) {
        m_pErrorManager->SetThreadError(i_exception);
    }
    return i_exception.GetCode();
}

uint32_t SSOImpl::MemoryRanOut() {
    return Run([]() -> uint32_t { throw std::bad_alloc(); });
}

template <class Operation>
uint32_t SSOImpl::RunOnContexts(Operation i_operation) {
    return Run([&]() -> uint32_t {
        S_ASSERT(m_pContextManager);
        if (!m_pContextManager) {
            return SSO_ERROR;
        }
        return i_operation(*m_pContextManager);
    });
}

SSOImpl::~SSOImpl() = default;

// ---- Providers ----

// Never null; the text is the operation's own. Throws SSOException.
static SSOHandlerPtr HandlerFor(const SWCharString& i_ssType, const char* i_pszNone) {
    const SSOHandlerFactoryPtr pHandlerFactory = SSOHandlerFactory::instance();
    S_ASSERT(pHandlerFactory);
    if (!pHandlerFactory) {
        throw SSOException(SSO_ERROR);
    }
    SSOHandlerPtr pHandler = pHandlerFactory->GetHandler(i_ssType);
    if (!pHandler) {
        S_TRACE(i_pszNone, i_ssType);
        throw SSOException(SSO_ERROR, kMsgUnknownProvider, {i_ssType});
    }
    return pHandler;
}

uint32_t SSOImpl::InitSSOProvider(const SWCharString& i_ssType, const ParasSeq* i_pParameters) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        const SSOHandlerPtr pHandler =
            HandlerFor(i_ssType, "ssoplugin: SSOImpl::InitSSOProvider() -- Could not get a handler for %1");
        const Parameters parameters(i_pParameters);
        pHandler->InitHandler(parameters);
        bool bCacheContexts = false;
        bool bKnown = false;
        try {
            bKnown = parameters.GetParameter(u"SI_CACHE_SECCONTEXT", bCacheContexts);
        } catch (const SSOException&) {
            // Handlers that have no use for the setting do not check it.
        }
        if (!bKnown) {
            S_TRACE(
                "ssoplugin: SSOImpl::InitSSOProvider() -- Could not determine whether to start the update thread or "
                "not.  Delaying until needed.");
        } else if (bCacheContexts) {
            i_contexts.StartUpdateThread();
        } else {
            S_TRACE(
                "ssoplugin: SSOImpl::InitSSOProvider() -- Not starting the cache cleanup thread; may start later if "
                "needed.");
        }
        return SSO_OK;
    });
}

uint32_t SSOImpl::GetRequiredParameters(const SWCharString& i_ssType, ParasSeq** o_ppParameters) {
    return Run([&] {
        Parameters().ToParasSeq(o_ppParameters);  // nothing, should what follows fail
        const SSOHandlerPtr pHandler =
            HandlerFor(i_ssType, "ssoplugin: SSOImpl::GetRequiredParameters() -- Could not get a handler for %1");
        pHandler->GetRequiredParameters().ToParasSeq(o_ppParameters);
        return SSO_OK;
    });
}

// ---- Logins ----

uint32_t SSOImpl::SSOStartLogin(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                const SWCharString& i_ssType, const ParasSeq* i_pParameters, void** o_ppvBuffer,
                                SSOLength* o_pnBufferLength, SSOChar** o_ppSessionKey) {
    return Run([&] {
        if (!m_pSessionManager) {
            S_TRACE("ssoplugin: SSOImpl::SSOStartLogin() -- Plugin not initialized.");
            throw SSOException(SSO_ERROR, kMsgNotInitialized);
        }
        LoginFrame frame(o_ppvBuffer, o_pnBufferLength, o_ppSessionKey,
                         "ssoplugin: SSOImpl::StartLogin() -- NULL pointer for returning data!",
                         "ssoplugin: SSOImpl::StartLogin() -- Non-NULL value passed in; could be leaking memory!");
        return frame.HandOut(
            m_pSessionManager->GenerateClientContext(i_ssUser, i_ssPassword, i_ssType, i_pParameters, frame.m_step));
    });
}

uint32_t SSOImpl::SSOContinueLogin(const void* i_pvBuffer, SSOLength i_nBufferLength, const SSOChar* i_pSessionKey,
                                   void** o_ppvBuffer, SSOLength* o_pnBufferLength) {
    return Run([&] {
        if (!m_pSessionManager) {
            S_TRACE("ssoplugin: SSOImpl::SSOContinueLogin() -- Plugin not initialized.");
            throw SSOException(SSO_ERROR, kMsgNotInitialized);
        }
        S_ASSERT(i_pvBuffer);
        S_ASSERT(i_nBufferLength > 0);
        S_ASSERT(i_pSessionKey);
        S_ASSERT(o_ppvBuffer);
        S_ASSERT(o_pnBufferLength);
        if (i_pvBuffer == nullptr || i_pSessionKey == nullptr || o_ppvBuffer == nullptr ||
            o_pnBufferLength == nullptr || i_nBufferLength == 0) {
            S_REASON("ssoplugin: SSOImpl::ContinueLogin() -- Bad parameters!");
            throw SSOException(SSO_ERROR);
        }
        RequireNull(*o_ppvBuffer, "*o_ppvBuffer == NULL",
                    "ssoplugin: SSOImpl::ContinueLogin() -- Non-NULL value passed in; could be leaking memory!");
        *o_ppvBuffer = nullptr;
        *o_pnBufferLength = 0;
        LoginStep step{.m_pvToken = i_pvBuffer,
                       .m_nTokenLength = i_nBufferLength,
                       .m_ssSessionKey = FromHost(i_pSessionKey),
                       .m_ppvBuffer = o_ppvBuffer,
                       .m_pnBufferLength = o_pnBufferLength,
                       .m_ssKey = {}};
        return m_pSessionManager->GenerateClientContext({}, {}, {}, nullptr, step);
    });
}

uint32_t SSOImpl::SSOAcceptLogin(const SWCharString& i_ssType, const SWCharString& i_ssSessionKey,
                                 const void* i_pvBuffer, SSOLength i_nBufferLength, void** o_ppvBuffer,
                                 SSOLength* o_pnBufferLength, ParasSeq** o_ppLogonInformation,
                                 SSOChar** o_ppSessionKey) {
    return Run([&] {
        if (!m_pSessionManager) {
            S_TRACE("ssoplugin: SSOImpl::SSOAcceptLogin() -- Plugin not initialized.");
            throw SSOException(SSO_ERROR, kMsgNotInitialized);
        }
        LoginFrame frame(o_ppvBuffer, o_pnBufferLength, o_ppSessionKey,
                         "ssoplugin: SSOImpl::AcceptLogin() -- Bad parameters!",
                         "ssoplugin: SSOImpl::ContinueLogin() -- Non-NULL value passed in; could be leaking memory!");
        frame.m_step.m_pvToken = i_pvBuffer;
        frame.m_step.m_nTokenLength = i_nBufferLength;
        frame.m_step.m_ssSessionKey = i_ssSessionKey;
        Parameters logonInformation;
        const bool bWantLogonInformation = o_ppLogonInformation != nullptr;
        if (bWantLogonInformation) {
            // Before the login, which cannot be undone once it has succeeded.
            Parameters().ToParasSeq(o_ppLogonInformation);
        }
        const uint32_t nResult =
            m_pSessionManager->GenerateServerContext(i_ssType, frame.m_step, bWantLogonInformation, logonInformation);
        if (bWantLogonInformation) {
            try {
                logonInformation.ToParasSeq(o_ppLogonInformation);
            } catch (...) {
                // Nobody would ever name what is new.
                const SWCharString& ssKey = frame.m_step.m_ssKey;
                if (nResult == SSO_ACCEPTED) {
                    m_pContextManager->Remove(ssKey);
                } else if (!(ssKey == i_ssSessionKey)) {
                    m_pSessionManager->ReleaseSession(ssKey);
                }
                throw;
            }
        }
        return frame.HandOut(nResult);
    });
}

// ---- Security contexts ----

uint32_t SSOImpl::Impersonate(const SSOChar* i_pszKey) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        i_contexts.Impersonate(HostKey(i_pszKey).view());
        return SSO_OK;
    });
}

uint32_t SSOImpl::Revert(const SSOChar* i_pszKey) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        i_contexts.Revert(HostKey(i_pszKey).view());
        return SSO_OK;
    });
}

uint32_t SSOImpl::AssociateSecurityContext(const SSOChar* i_pszKey, const SWCharString& i_ssNewKey) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        if (!i_contexts.AddAssociation(HostKey(i_pszKey).view(), i_ssNewKey)) {
            throw SSOException(SSO_NO_CONTEXT, kMsgNoContext);
        }
        return SSO_OK;
    });
}

uint32_t SSOImpl::LookupSecurityContext(const SSOChar* i_pszKey) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        return i_contexts.IsValid(HostKey(i_pszKey).view()) ? SSO_OK : SSO_NO_CONTEXT;
    });
}

uint32_t SSOImpl::ReleaseSecurityContext(const SSOChar* i_pszKey) {
    return RunOnContexts([&](ContextManager& i_contexts) {
        return i_contexts.Remove(HostKey(i_pszKey).view()) ? SSO_OK : SSO_NO_CONTEXT;
    });
}

uint32_t SSOImpl::ReleaseAllSecurityContexts() {
    return RunOnContexts([](ContextManager& i_contexts) {
        i_contexts.Clear();
        return SSO_OK;
    });
}

uint32_t SSOImpl::AcquireCurrentSecurityContext(const SWCharString& i_ssType, const ParasSeq* i_pParameters,
                                                SSOChar** o_ppSessionID) {
    return Run([&]() -> uint32_t {
        if (!m_pSessionManager) {
            return SSO_ERROR;
        }
        S_ASSERT(o_ppSessionID);
        if (o_ppSessionID == nullptr) {
            throw SSOException(SSO_ERROR);
        }
        RequireNull(*o_ppSessionID, "!*o_ppSessionID",
                    "ssoplugin: SSOImpl::AcquireCurrentSecurityContext() -- Non-null input string.  Possibly "
                    "overwriting existing data!");
        *o_ppSessionID = nullptr;
        KeyForHost key;
        SWCharString ssSessionID;
        const uint32_t nResult = m_pSessionManager->AcquireCurrentContext(i_ssType, i_pParameters, ssSessionID);
        S_ASSERT(!ssSessionID.isEmpty());
        if (ssSessionID.isEmpty()) {
            throw SSOException(SSO_ERROR);
        }
        *o_ppSessionID = key.HandOut(ssSessionID);
        return nResult;
    });
}

// ---- Errors ----

// Whether there is an output, which is empty then.
template <class T>
static bool ClearOutput(T** o_ppOutput, const char* i_pszName, const char* i_pszNotEmpty) {
    S_ASSERT_TEXT(o_ppOutput != nullptr, i_pszName);
    if (o_ppOutput == nullptr) {
        return false;
    }
    RequireNull(*o_ppOutput, nullptr, i_pszNotEmpty);
    *o_ppOutput = nullptr;
    return true;
}

uint32_t SSOImpl::GetError(uint32_t i_ErrorCode, SSOError** o_ppError) {
    if (!ClearOutput(o_ppError, "o_ppError",
                     "ssoplugin: SSOImpl::GetError() -- Assigning error to a non-NULL object; possible memory leak!")) {
        return SSO_ERROR;
    }
    return Guarded([&] {
        *o_ppError = m_pErrorManager->GetThreadError();
        if (*o_ppError == nullptr) {
            S_TRACE("ssoplugin: SSOImpl::GetError() -- Could not get error details.");
            return SSO_ERROR;
        }
        S_ASSERT((*o_ppError)->errCode == i_ErrorCode);
        return SSO_OK;
    });
}

uint32_t SSOImpl::GetErrorMessage(uint32_t i_nMessageId, SSOChar** o_ppMessage) {
    if (!ClearOutput(o_ppMessage, "o_ppMessage",
                     "ssoplugin: SSOImpl::GetErrorMessage() -- Assigning error message to a non-NULL string; possible "
                     "memory leak!")) {
        return SSO_ERROR;
    }
    const CPassage passage(m_gate);
    if (!passage) {
        return SSO_ERROR;
    }
    // Not inside the frame: an error while an error is explained must not become the thread's record.
    *o_ppMessage = m_pErrorManager->GetErrorMessage(i_nMessageId);
    if (*o_ppMessage == nullptr) {
        S_TRACE("ssoplugin: SSOImpl::GetErrorMessage() -- Could not get error details.");
        return SSO_ERROR;
    }
    return SSO_OK;
}

void SSOImpl::FreeError(SSOError* i_pError) noexcept {
    try {
        FreeErrorRecord(i_pError);
    } catch (const SSOException&) {
        S_FAIL("ssoplugin: SSOImpl::FreeError() -- Caught unexpected internal exception.");
    } catch (...) {
        S_FAIL("ssoplugin: SSOImpl::FreeError() -- Caught unknown exception!");
    }
}

// ---- Memory ----

void SSOImpl::FreeBuffer(void* i_pvBuffer) {
    const CPassage passage(m_gate);
    if (passage && m_pSessionManager) {
        m_pSessionManager->FreeExternalBuffer(i_pvBuffer);
    }
}

void SSOImpl::FreeParameters(ParasSeq* i_pParameters) noexcept {
    Parameters::FreeSequence(i_pParameters);
}

SSOChar* SSOImpl::AllocateString(const SWCharString& i_ssText) {
    SSOChar* pszCopy = CopyToHost(i_ssText);
    if (pszCopy == nullptr && !i_ssText.isEmpty()) {
        S_ASSERT(pszCopy);
        throw SSOException(SSOException::OutOfMemory());
    }
    return pszCopy;
}

void SSOImpl::FreeString(SSOChar* i_pszText) noexcept {
    if (i_pszText == nullptr) {
        S_TRACE("ssoplugin: SSOImpl::FreeString() -- Called with a NULL buffer; doing nothing!");
        return;
    }
    FreeHostText(i_pszText);
}

}  // namespace morwen
