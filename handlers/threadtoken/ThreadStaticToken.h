// The identity of a thread, kept.
#pragma once

#include "handlers/SSOHandler.h"
#include "handlers/threadtoken/TokenHandle.h"

namespace morwen {

// Expires by its handler's setting only, and is never renewed.
class ThreadStaticToken : public StaticToken {
public:
    // Takes the handle over once the constructor has returned. Throws SSOException for a null handle.
    ThreadStaticToken(HANDLE i_pToken, const SSOHandlerPtr& i_pHandler);

    void Impersonate() override;
    void Revert() override;
    bool Expired(SDateTime i_now) override;
    bool RenegotiateImpl() override;
    STimeSpan GetTimeToExpiry(SDateTime i_now) override;
    STimeSpan GetLifetime() override;

private:
    ~ThreadStaticToken() override;

    TokenHandle m_pToken;
};

}  // namespace morwen
