#include "handlers/kerberos/SSPISession.h"

#include <limits>

#include "errors/SSOException.h"
#include "harrow/STrace.h"
#include "platform/Platform.h"

namespace morwen {

SSPISession::SSPISession(const ParasSeq* i_pLoginParameters) : SSOSession(i_pLoginParameters) {
    m_ssType = u"SSPI";
}

SSPISession::~SSPISession() {
    try {
        if (!HoldsContext()) {
            S_TRACE("ssoplugin: SSPISession::~SSPISession() -- CtxtHndle does not require releasing.");
        } else if (Platform::Sspi().DeleteSecurityContext(&m_handle) != SEC_E_OK) {
            S_TRACE("ssoplugin: SSPISession::~SSPISession() -- Could not delete context handle.");
        }
    } catch (...) {
        S_TRACE("ssoplugin: SSPISession::~SSPISession() -- Unexpected exception!");
    }
}

StaticTokenPtr SSPISession::GetStaticToken() {
    throw SSOException(SSO_NOT_SUPPORTED);
}

void SSPISession::CountPass() noexcept {
    if (m_nPassCount != std::numeric_limits<uint16_t>::max()) {
        ++m_nPassCount;
    }
}

}  // namespace morwen
