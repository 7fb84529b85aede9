// What the check of a ticket's PAC has found, kept for the next logon with the very same ticket.
#pragma once

#include <krb5/krb5.h>

#include <array>
#include <memory>
#include <vector>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/pac/PacCheck.h"

namespace morwen {

// A client uses a ticket for hours, and its PAC is in the part that the service's key has sealed: the same bytes opened
// with the same key hold the same PAC, user and times, and nothing else decides the check. So its result is kept beside
// all of these bytes, and counts for no other ones. Only what libkrb5 has just opened may be looked for or kept here:
// whether a ticket is good is not this object's business. It holds as many tickets as it has places, none of them a
// large one. Any method on any thread; nothing is compared or copied under the lock.
class KeptPacs {
public:
    // Null for what is not kept. A key is known by its address, so this object must not outlive the keys.
    std::shared_ptr<const PacInformation> Find(const krb5_enc_data& i_sealed, const krb5_keyblock* i_pKey) const;

    // In place of whatever has its place. Throws std::bad_alloc.
    void Keep(const krb5_enc_data& i_sealed, const krb5_keyblock* i_pKey, std::shared_ptr<const PacInformation> i_pPac);

private:
    struct Ticket {
        const krb5_keyblock* m_pKey;
        krb5_enctype m_nType;
        krb5_kvno m_nKeyVersion;
        std::vector<uint8_t> m_sealed;
        std::shared_ptr<const PacInformation> m_pPac;
    };

    static constexpr size_t kPlaces = 128;

    static size_t PlaceOf(const krb5_enc_data& i_sealed) noexcept;

    mutable Harrowlib201::CS_Wrapper m_section;
    std::array<std::shared_ptr<const Ticket>, kPlaces> m_tickets S_GUARDED_BY(m_section);
};

}  // namespace morwen
