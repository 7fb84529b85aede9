#include "handlers/threadtoken/ThreadTokenSession.h"

#include <new>

#include "errors/SSOException.h"
#include "handlers/threadtoken/ThreadStaticToken.h"

namespace morwen {

ThreadTokenSession::ThreadTokenSession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler)
    : SSOSession(i_pLoginParameters, i_pHandler),
      m_token("ssoplugin: ThreadTokenSession::~ThreadTokenSession() -- Failed to close handle!") {
    m_ssType = u"THREADTOKEN";
}

StaticTokenPtr ThreadTokenSession::GetStaticToken() {
    try {
        StaticTokenPtr pToken = Harrowlib201::MakeCounted<ThreadStaticToken>(m_token.get(), m_pHandler);
        S_ASSERT(pToken);
        static_cast<void>(m_token.Detach());
        return pToken;
    } catch (const std::bad_alloc&) {
        // Known to administrators under the other session's name.
        S_FAIL("ssoplugin: SSPISession::GetStaticToken() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
}

}  // namespace morwen
