// Whom the calling thread acts as.
#pragma once

#include <memory>

#include "platform/linux/identity/TokenIdentity.h"

namespace morwen {

// All of it is about the calling thread. One that could not be made the service again is stuck: until a revert succeeds
// it impersonates nobody and makes no Kerberos call.

// The thread goes on as the identity's account. While it impersonates somebody already, that one is replaced. 0, or an
// errno and the thread as it was (or stuck).
int ImpersonateIdentity(std::shared_ptr<const TokenIdentity> i_pIdentity) noexcept;

// The thread is the service again; so it is when it impersonates nobody. 0, or an errno.
int RevertThread() noexcept;

// Whom it impersonates; null when it is itself.
std::shared_ptr<const TokenIdentity> ImpersonatedIdentity() noexcept;

bool IsThreadStuck() noexcept;

// The account of the service, also while the thread is somebody else. Throws std::bad_alloc, std::system_error.
UnixAccount ServiceAccount();

// The thread is the service as long as it lives, and whom it impersonated after: the service's keys, caches and replay
// file are the service's to read. May be nested.
class ServiceScope {
public:
    ServiceScope() noexcept;
    ~ServiceScope();
    ServiceScope(const ServiceScope&) = delete;
    ServiceScope& operator=(const ServiceScope&) = delete;

    // False when the thread could not be made the service; nothing may be done on its behalf then.
    bool IsService() const noexcept { return m_bService; }

private:
    bool m_bService;
};

}  // namespace morwen
