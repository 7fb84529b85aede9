// The capture of a thread's identity.
#pragma once

#include "handlers/SSOHandler.h"
#include "handlers/threadtoken/TokenHandle.h"

namespace morwen {

class ThreadTokenSession : public SSOSession {
public:
    ThreadTokenSession(const ParasSeq* i_pLoginParameters, const SSOHandlerPtr& i_pHandler);

    // The token takes the handle over. Throws SSOException.
    StaticTokenPtr GetStaticToken() override;

    // Owns the handle from now on.
    void SetToken(HANDLE i_hToken) noexcept { m_token.Reset(i_hToken); }

private:
    TokenHandle m_token;
};

}  // namespace morwen
