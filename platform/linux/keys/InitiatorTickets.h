// The service tickets of one identity, held in memory.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <memory>
#include <string>

#include "harrow/lifetime/HeldMap.h"
#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/forwarding/ForwardedTickets.h"
#include "platform/linux/keys/PasswordLogon.h"
#include "platform/linux/keys/SourceLook.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen {

// Shared by all credential handles of the identity. Any method on any thread. No lock is held while a file is looked at
// or a KDC asked for a service ticket; a password is checked once, and who needs its tickets meanwhile waits.
class InitiatorTickets : public LogonTickets, private ForwardedTickets::Source {
public:
    // The tickets in the default cache of the user that the process runs as, held for all who ask, unless it is in a
    // keyring of the thread or session. Nothing is looked at yet: that there is no ticket shows when one is needed.
    // Throws SspiFailure, std::bad_alloc.
    static std::shared_ptr<InitiatorTickets> Default(krb5_context i_context);

    // Lets go of all that are shared by who has the same cache.
    static void ReleaseHeld() noexcept;

    // With the cache of this name, which somebody has named or nobody has (FaultOfDefaultCache).
    explicit InitiatorTickets(std::string i_cacheName, bool i_bNamed = true);
    explicit InitiatorTickets(std::unique_ptr<PasswordLogon> i_pLogon);

    // A ticket for the service that is good now, from memory, from the cache or from the KDC; what the KDC gives goes
    // into the cache too. Throws SspiFailure: SEC_E_NO_CREDENTIALS when the user has no ticket or an expired one (the
    // text names user, cache and time), SEC_E_TARGET_UNKNOWN for an unknown service, SEC_E_LOGON_DENIED for a refused
    // password.
    std::shared_ptr<const ServiceTicket> Get(krb5_context i_context, const std::string& i_targetName) override;

    // Of the cache's ticket-granting ticket.
    std::shared_ptr<const ForwardedTicket> Forwarded(krb5_context i_context, const std::string& i_targetName,
                                                     const ServiceTicket& i_ticket) override;

    // The cache with the identity's ticket-granting ticket, good for libkrb5's own functions. Throws SspiFailure.
    Krb5CacheOwner OpenCache(krb5_context i_context) override;

private:
    uint64_t Generation() override;
    std::shared_ptr<const ServiceTicket> Held(krb5_context i_context, const std::string& i_targetName,
                                              uint64_t& o_nGeneration);
    void Hold(const std::string& i_targetName, std::shared_ptr<const ServiceTicket> i_pTicket, uint64_t i_nGeneration);
    void RequireOwnCache(bool i_bRead = false) const;
    bool NeedsLook();
    void ForgetWhenChanged();
    std::shared_ptr<const ServiceTicket> Fetch(krb5_context i_context, const std::string& i_targetName);

    const std::string m_cacheName;  // empty with a password
    const std::string m_cachePath;  // empty unless the cache is a file
    const bool m_bCacheNamed = true;
    const std::unique_ptr<PasswordLogon> m_pLogon;

    Harrowlib201::CS_Wrapper m_section;
    static constexpr size_t kMostTickets = 256;  // more services than one identity uses
    Harrowlib201::HeldMap<std::string, std::shared_ptr<const ServiceTicket>, kMostTickets> m_tickets
        S_GUARDED_BY(m_section);
    SourceLook m_look S_GUARDED_BY(m_section);
    uint64_t m_nGeneration S_GUARDED_BY(m_section) = 0;  // goes up whenever the tickets are forgotten
    ForwardedTickets m_forwarded;
};

}  // namespace morwen
