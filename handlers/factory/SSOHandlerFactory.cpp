#include "handlers/factory/SSOHandlerFactory.h"

#include <new>
#include <string>

#include "errors/SSOException.h"
#include "handlers/kerberos/KerberosSSPIHandler.h"
#include "handlers/threadtoken/ThreadTokenHandler.h"
#include "harrow/lifetime/CSingleton.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"

namespace morwen {

using namespace Harrowlib201;

const SSOHandlerFactoryPtr& SSOHandlerFactory::instance() {
    try {
        const SSOHandlerFactoryPtr& s_pSingleton = CSingleton<SSOHandlerFactory>::Get();
        S_ASSERT(s_pSingleton);
        if (!s_pSingleton) {
            S_FAIL("SSOHandlerFactory::instance() -- singleton is NULL!");
            throw SSOException(SSO_ERROR);
        }
        return s_pSingleton;
    } catch (const std::bad_alloc&) {
        S_FAIL("SSOHandlerFactory::instance() -- out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
}

SSOHandlerPtr SSOHandlerFactory::GetHandler(const SWCharString& i_ssType) {
    S_TRACE("ssoplugin: SSOHandlerFactory::GetHandler() -- Looking for a handler for %1", i_ssType);
    const CS_Locker locker(m_section);
    try {
        const auto found = m_mapHandlers.find(i_ssType);
        SSOHandlerPtr pHandler = found != m_mapHandlers.end() ? found->second : MakeHandler(i_ssType);
        S_ASSERT(pHandler);
        if (!pHandler) {
            throw SSOException(SSO_ERROR);
        }
        if (found == m_mapHandlers.end()) {
            m_mapHandlers.emplace(i_ssType, pHandler);
        }
        return pHandler;
    } catch (const std::bad_alloc&) {
        S_FAIL("SSOHandlerFactory::GetHandler() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
}

SSOHandlerPtr SSOHandlerFactory::MakeHandler(const SWCharString& i_ssType) {
    if (i_ssType == u"SSPI") {
        return MakeCounted<KerberosSSPIHandler>();
    }
    if (i_ssType == u"THREADTOKEN") {
        return MakeCounted<ThreadTokenHandler>();
    }
    if (ShouldAssert()) {
        const std::string message = "ssoplugin: SSOHandlerFactory::GetHandler() -- Unsupported type: " +
                                    SWCharStringConv::ToUtf8(i_ssType.view());
        S_FAIL(message.c_str());
    }
    throw SSOException(SSO_ERROR, kMsgUnknownProvider, {i_ssType});
}

void SSOHandlerFactory::ReleaseHandlers() {
    const CS_Locker locker(m_section);
    m_mapHandlers.clear();
}

}  // namespace morwen
