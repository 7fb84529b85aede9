// What a credential handle names.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>

#include "platform/OsTypes.h"
#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/keys/InitiatorTickets.h"

namespace morwen {

// Never changed once it exists; what it points at takes care of its own threads.
struct LinuxCredential {
    bool m_bInitiates = false;
    std::shared_ptr<LogonTickets> m_pTickets;     // null for a user who has none for here: no logon can be started
    std::shared_ptr<const AcceptorKeys> m_pKeys;  // null when good for initiating only
    mutable Krb5ParkedContext m_context;          // from the acquisition, for the step that mostly follows

    // For the use SECPKG_CRED_INBOUND, SECPKG_CRED_OUTBOUND or SECPKG_CRED_BOTH. An identity is whose logon is
    // initiated; null means the default one. A service is known by its keytab, whoever asks. Nothing is asked of a KDC
    // here: a missing ticket or a wrong password shows in the first pass of a logon. Throws SspiFailure,
    // std::bad_alloc.
    static std::shared_ptr<LinuxCredential> Acquire(krb5_context i_context, uint32_t i_nUse,
                                                    const SEC_WINNT_AUTH_IDENTITY_W* i_pIdentity);

    // The same for logons of the user that the thread acts as, whose tickets are at hand: no context is needed, and the
    // thread need not become the service for one. Null where it takes more.
    static std::shared_ptr<LinuxCredential> OfActingUser(uint32_t i_nUse, const SEC_WINNT_AUTH_IDENTITY_W* i_pIdentity);

    // Lets go of the keys and tickets that are held for those to come.
    static void ReleaseHeld() noexcept;
};

}  // namespace morwen
