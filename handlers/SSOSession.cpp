#include "handlers/SSOSession.h"

#include "errors/SSOException.h"
#include "handlers/SSOHandler.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"

namespace morwen {

using Harrowlib201::SWCharStringConv;

SSOSession::SessionIdentifier::SessionIdentifier(const SSOSession& i_session) noexcept
    : m_nValue(reinterpret_cast<uintptr_t>(&i_session)) {}

SSOSession::SessionIdentifier::SessionIdentifier(const SWCharString& i_ssKey) {
    if (!SWCharStringConv::FromString(i_ssKey, m_nValue)) {
        S_REASON("ssoplugin: SSOSession::SessionIdentifier::SessionIdentifier() -- Could not convert %1 to a number.",
                 i_ssKey);
        throw SSOException(SSO_ERROR);
    }
}

SSOSession::SSOSession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler)
    : m_pHandler(i_pHandler), m_parameters(i_pLoginParameters) {}

SSOSession::~SSOSession() = default;

SWCharString SSOSession::SessionIdentifier::ToString() const {
    return SWCharStringConv::ToString(m_nValue);
}

}  // namespace morwen
