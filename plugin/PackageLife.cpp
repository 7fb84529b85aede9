// The core's start and end, and the components that live between them.
#include <memory>
#include <new>

#include "errors/MessageTable.h"
#include "errors/SSOException.h"
#include "handlers/ActingThreads.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "harrow/lifetime/OwnProcess.h"
#include "harrow/log/SLogger.h"
#include "harrow/log/SResManager.h"
#include "harrow/log/STrace.h"
#include "plugin/SSOImpl.h"
#include "plugin/Version.h"

namespace morwen {

using namespace Harrowlib201;

bool SSOImpl::CountUp() {
    const CS_Locker counting(m_counting);
    if (m_nInitRefcount == 0) {
        return false;
    }
    ++m_nInitRefcount;
    S_TRACE("ssoplugin: SSOImpl::Initialize() -- Already initialized; incrementing refcount (%1)", m_nInitRefcount);
    return true;
}

bool SSOImpl::CountDown() {
    const CS_Locker counting(m_counting);
    if (m_nInitRefcount < 2) {
        return false;
    }
    --m_nInitRefcount;
    return true;
}

bool SSOImpl::Initialize() {
    SetReason("");
    if (CountUp()) {
        return true;
    }
    const CS_Locker transition(m_transition);
    return CountUp() || Start();  // another thread may have been the first
}

bool SSOImpl::Start() {
    if (m_bAbandoned) {
        S_REASON(
            "ssoplugin: SSOImpl::Initialize() -- The package ended in a forked process while threads of its parent "
            "were in calls; what they had locked there stays locked.");
        return false;
    }
    if (OwnProcess::IsForkedChild()) {
        m_gate.ForgetAll();
    }
    OwnProcess::Note();
    SLogger::Initialize("morwen " MORWEN_VERSION);
    SResManager::Initialize(MessageTable());
    try {
        StartThreadLibrary();
        CreateComponents();
    } catch (const SSOException&) {
        S_REASON("ssoplugin: SSOImpl::Initialize() -- Failed to initialize components.");
        ReleaseComponents();
        SResManager::Terminate();
        SLogger::Terminate();
        return false;
    }
    m_hold.Take();
    const CS_Locker counting(m_counting);
    ++m_nInitRefcount;
    S_ASSERT(m_nInitRefcount == 1);
    S_TRACE("ssoplugin: SSOImpl::Initialize() -- Successfully initialized.  Refcount is now %1", m_nInitRefcount);
    m_gate.Open();
    return true;
}

void SSOImpl::StartThreadLibrary() {
    if (!m_pJtcInit) {
        try {
            m_pJtcInit = std::make_unique<JTCInitialize>();
            S_ASSERT(m_pJtcInit);
            S_ASSERT(JTCInitialize::initialized());
        } catch (const std::bad_alloc&) {
            S_TRACE("ssoplugin: SSOImpl::Initialize() -- Out of memory initializing JTC!");
        } catch (...) {
            S_TRACE("ssoplugin: SSOImpl::Initialize() -- Unexpected exception initializing JTC!");
        }
    }
    if (!m_pJtcInit || !JTCInitialize::initialized()) {
        throw SSOException(SSO_ERROR);
    }
}

void SSOImpl::CreateComponents() {
    try {
        const auto pCache = MakeCounted<SecContextCache>(0);
        m_pSessionManager = MakeCounted<SessionManager>(pCache);
        m_pContextManager = MakeCounted<ContextManager>(pCache);
        m_pErrorManager = MakeCounted<ErrorManager>();
    } catch (const std::bad_alloc&) {
        S_TRACE("ssoplugin: SSOImpl::Initialize() -- Out of memory intializing components!");
    } catch (...) {
        S_TRACE("ssoplugin: SSOImpl::Initialize() -- Unexpected exception initializing components!");
    }
    S_ASSERT(m_pSessionManager);
    S_ASSERT(m_pContextManager);
    S_ASSERT(m_pErrorManager);
    if (!m_pSessionManager || !m_pContextManager || !m_pErrorManager) {
        throw SSOException(SSO_ERROR);
    }
}

void SSOImpl::ReleaseComponents() {
    m_pContextManager = nullptr;
    m_pSessionManager = nullptr;
    m_pErrorManager = nullptr;
    m_pJtcInit.reset();
}

void SSOImpl::Shutdown() {
    if (OwnProcess::IsAlone()) {
        return;  // a static object of a host's library: what is kept goes with the process
    }
    if (CountDown()) {
        return;
    }
    const CS_Locker transition(m_transition);
    {
        const CS_Locker counting(m_counting);
        S_ASSERT(m_nInitRefcount > 0);
        if (m_nInitRefcount == 0) {
            S_TRACE("ssoplugin: SSOImpl::Shutdown() -- Called more times than Initialize()!");
        } else {
            --m_nInitRefcount;
        }
        if (m_nInitRefcount != 0) {
            return;  // another thread has started it meanwhile
        }
        m_gate.Shut();
    }
    // In a fork those inside do not exist: they never leave, nor let go of what they had locked.
    const bool bAbandoned = OwnProcess::IsForkedChild() && !m_gate.IsEmpty();
    if (!bAbandoned) {
        m_gate.AwaitEmpty();
        // No key will be left to revert under.
        if (!ActingThreads::Revert()) {
            S_FAIL("ssoplugin: SSOImpl::Shutdown() -- The thread acts as a user, and cannot become itself again.");
        }
    }
    SResManager::Terminate();
    SLogger::Terminate();
    if (bAbandoned) {
        AbandonComponents();
    } else {
        EndComponents();
    }
}

void SSOImpl::AbandonComponents() noexcept {
    m_bAbandoned = true;
    const auto leave = [](auto& io_pComponent) {
        if (io_pComponent) {
            io_pComponent->addRef();
            io_pComponent = nullptr;
        }
    };
    leave(m_pContextManager);
    leave(m_pSessionManager);
    leave(m_pErrorManager);
    m_pJtcInit.reset();
    m_hold.Release();
}

void SSOImpl::EndComponents() {
    if (m_pContextManager) {
        m_pContextManager->StopUpdateThread();
        m_pContextManager->Clear();
    }
    ReleaseComponents();
    try {
        const SSOHandlerFactoryPtr pHandlerFactory = SSOHandlerFactory::instance();
        if (pHandlerFactory) {
            pHandlerFactory->ReleaseHandlers();
        } else {
            S_ASSERT_MSG(pHandlerFactory, "SSOImpl::Shutdown(): unexpected NULL HandlerFactory");
        }
    } catch (...) {
        S_TRACE("SSOImpl::Shutdown(): caught xn when cleaning up SSOHandlers");
    }
    m_hold.Release();
}

}  // namespace morwen
