#include "platform/linux/pac/KeptPacs.h"

#include <cstring>
#include <utility>

namespace morwen {

namespace {

// Of a user in some hundred groups. What a larger one costs is not what its check costs.
constexpr size_t kMostSealedBytes = 5120;

}  // namespace

// The bytes begin with what the KDC has made up at random.
size_t KeptPacs::PlaceOf(const krb5_enc_data& i_sealed) noexcept {
    return static_cast<uint8_t>(i_sealed.ciphertext.data[0]) % kPlaces;
}

std::shared_ptr<const PacInformation> KeptPacs::Find(const krb5_enc_data& i_sealed, const krb5_keyblock* i_pKey) const {
    const krb5_data& bytes = i_sealed.ciphertext;
    if (i_pKey == nullptr || bytes.length == 0 || bytes.length > kMostSealedBytes) {
        return nullptr;
    }
    std::shared_ptr<const Ticket> pTicket;
    {
        const Harrowlib201::CS_Locker locker(m_section);
        pTicket = m_tickets[PlaceOf(i_sealed)];
    }
    const bool bSame = pTicket != nullptr && pTicket->m_pKey == i_pKey && pTicket->m_nType == i_sealed.enctype &&
                       pTicket->m_nKeyVersion == i_sealed.kvno && pTicket->m_sealed.size() == bytes.length &&
                       std::memcmp(pTicket->m_sealed.data(), bytes.data, bytes.length) == 0;
    return bSame ? pTicket->m_pPac : nullptr;
}

void KeptPacs::Keep(const krb5_enc_data& i_sealed, const krb5_keyblock* i_pKey,
                    std::shared_ptr<const PacInformation> i_pPac) {
    const krb5_data& bytes = i_sealed.ciphertext;
    if (i_pKey == nullptr || bytes.length == 0 || bytes.length > kMostSealedBytes) {
        return;
    }
    const auto* const pBytes = reinterpret_cast<const uint8_t*>(bytes.data);
    std::shared_ptr<const Ticket> pTicket = std::make_shared<const Ticket>(
        Ticket{i_pKey, i_sealed.enctype, i_sealed.kvno, {pBytes, pBytes + bytes.length}, std::move(i_pPac)});
    const Harrowlib201::CS_Locker locker(m_section);
    m_tickets[PlaceOf(i_sealed)].swap(pTicket);  // what was there goes after the lock
}

}  // namespace morwen
