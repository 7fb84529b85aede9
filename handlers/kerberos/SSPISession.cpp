#include "handlers/kerberos/SSPISession.h"

#include <limits>
#include <new>

#include "errors/SSOException.h"
#include "handlers/kerberos/SSPIStaticToken.h"
#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

SSPISession::SSPISession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler)
    : SSOSession(i_pLoginParameters, i_pHandler) {
    m_ssType = u"SSPI"_ss;
    if (bool bNegotiate = false; GetParameters().GetParameter(u"SSPI_NEGOTIATE"_ss, bNegotiate) && bNegotiate) {
        m_initiating.emplace();
    }
    if (SWCharString ssChannel;
        GetParameters().GetParameter(u"SSPI_CHANNEL_BINDINGS"_ss, ssChannel) && !ssChannel.isEmpty()) {
        m_channel.emplace(ssChannel);
    }
}

SSPISession::~SSPISession() {
    try {
        if (!HoldsContext() || m_bHandedOver) {
            S_TRACE("ssoplugin: SSPISession::~SSPISession() -- CtxtHndle does not require releasing.");
        } else if (Platform::Sspi().DeleteSecurityContext(&m_handle) != SEC_E_OK) {
            S_TRACE("ssoplugin: SSPISession::~SSPISession() -- Could not delete context handle.");
        }
    } catch (...) {
        S_TRACE("ssoplugin: SSPISession::~SSPISession() -- Unexpected exception!");
    }
}

StaticTokenPtr SSPISession::GetStaticToken() {
    // A context that is not complete belongs to nobody yet; one that is handed over already would have two owners.
    if (!m_bEstablished || m_bHandedOver) {
        throw SSOException(SSO_ERROR);
    }
    try {
        StaticTokenPtr pToken = Harrowlib201::MakeCounted<SSPIStaticToken>(&m_handle, m_pHandler);
        S_ASSERT(pToken);
        m_bHandedOver = true;
        return pToken;
    } catch (const std::bad_alloc&) {
        S_TRACE("ssoplugin: SSPISession::GetStaticToken() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
}

void SSPISession::CountPass() noexcept {
    if (m_nPassCount != std::numeric_limits<uint16_t>::max()) {
        ++m_nPassCount;
    }
}

}  // namespace morwen
