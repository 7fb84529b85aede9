#include "platform/linux/binding/Mic.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "harrow/lifetime/SecureWipe.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen {

namespace {

// The header: what it is, who has sent it and with whose key, five fillers, a number with its highest byte first.
constexpr size_t kHeaderBytes = 16;
constexpr size_t kNumberAt = 12;  // the lower half of its eight bytes
constexpr uint8_t kOfAcceptor = 0x01;
constexpr uint8_t kAcceptorKey = 0x04;
constexpr krb5_keyusage kAcceptorSigns = 23;
constexpr krb5_keyusage kInitiatorSigns = 25;

using Bytes = std::vector<uint8_t>;

bool IsOfOldForm(krb5_enctype i_nType) {
    switch (i_nType) {
        case ENCTYPE_DES3_CBC_SHA1:
        case ENCTYPE_ARCFOUR_HMAC:
        case ENCTYPE_ARCFOUR_HMAC_EXP:
            return true;
        default:
            return i_nType <= ENCTYPE_DES3_CBC_RAW;
    }
}

// Too little memory is no reason to do without a MIC, nor a wrong one.
bool IsGood(krb5_error_code i_nCode) {
    if (i_nCode == ENOMEM) {
        throw std::bad_alloc();
    }
    return i_nCode == 0;
}

// Without a hint, by its time, of how much was right.
bool AreSame(std::span<const uint8_t> i_left, std::span<const uint8_t> i_right) {
    uint8_t nDifference = i_left.size() != i_right.size() ? 1 : 0;
    for (size_t i = 0; i < std::min(i_left.size(), i_right.size()); ++i) {
        nDifference = static_cast<uint8_t>(nDifference | (i_left[i] ^ i_right[i]));
    }
    return nDifference == 0;
}

}  // namespace

MicKey::~MicKey() {
    Harrowlib201::SecureWipe(m_key.data(), m_key.size());
}

std::optional<MicKey> MicKey::Of(krb5_context i_context, krb5_auth_context i_exchange, bool i_bAccepts,
                                 bool i_bAcceptorKey) {
    Krb5Owner<krb5_keyblock*, krb5_free_keyblock> key(i_context);
    // Both sides' sub-key is that of the last who has chosen one.
    if (!IsGood(krb5_auth_con_getsendsubkey(i_context, i_exchange, key.Receive())) ||
        (!key && !IsGood(krb5_auth_con_getrecvsubkey(i_context, i_exchange, key.Receive()))) ||
        (!key && !IsGood(krb5_auth_con_getkey(i_context, i_exchange, key.Receive()))) || !key ||
        IsOfOldForm(key->enctype)) {
        return std::nullopt;
    }
    krb5_int32 nNumber = 0;
    // A service that has sent no reply, and so no number of its own, counts on from the client's.
    if ((i_bAccepts && !i_bAcceptorKey ? krb5_auth_con_getremoteseqnumber(i_context, i_exchange, &nNumber)
                                       : krb5_auth_con_getlocalseqnumber(i_context, i_exchange, &nNumber)) != 0) {
        return std::nullopt;
    }
    MicKey mic;
    mic.m_nType = key->enctype;
    mic.m_key.assign(key->contents, key->contents + key->length);
    mic.m_bAccepts = i_bAccepts;
    mic.m_bAcceptorKey = i_bAcceptorKey;
    mic.m_nNumber = static_cast<uint32_t>(nNumber);
    return mic;
}

Bytes MicKey::Checksum(krb5_context i_context, std::span<const uint8_t> i_message, std::span<const uint8_t> i_header,
                       bool i_bOfAcceptor) const {
    Bytes input(i_message.begin(), i_message.end());
    input.insert(input.end(), i_header.begin(), i_header.end());
    krb5_data data{};
    data.data = reinterpret_cast<char*>(input.data());
    data.length = static_cast<unsigned>(input.size());
    krb5_keyblock key{};
    key.enctype = m_nType;
    key.contents = const_cast<uint8_t*>(m_key.data());  // read only
    key.length = static_cast<unsigned>(m_key.size());
    krb5_checksum checksum{};
    const krb5_keyusage nUsage = i_bOfAcceptor ? kAcceptorSigns : kInitiatorSigns;
    if (!IsGood(krb5_c_make_checksum(i_context, 0, &key, nUsage, &data, &checksum))) {
        return {};
    }
    Bytes bytes(checksum.contents, checksum.contents + checksum.length);
    krb5_free_checksum_contents(i_context, &checksum);
    return bytes;
}

Bytes MicKey::Make(krb5_context i_context, std::span<const uint8_t> i_message) const {
    Bytes mic = {0x04, 0x04, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    mic[2] = static_cast<uint8_t>((m_bAccepts ? kOfAcceptor : 0) | (m_bAcceptorKey ? kAcceptorKey : 0));
    for (size_t i = 0; i < sizeof(m_nNumber); ++i) {
        mic[kNumberAt + i] = static_cast<uint8_t>(m_nNumber >> (8 * (sizeof(m_nNumber) - 1 - i)));
    }
    const Bytes checksum = Checksum(i_context, i_message, mic, m_bAccepts);
    mic.insert(mic.end(), checksum.begin(), checksum.end());
    return checksum.empty() ? Bytes() : mic;
}

bool MicKey::Check(krb5_context i_context, std::span<const uint8_t> i_message, std::span<const uint8_t> i_mic) const {
    const Bytes expected = {
        0x04, 0x04, static_cast<uint8_t>((m_bAccepts ? 0 : kOfAcceptor) | (m_bAcceptorKey ? kAcceptorKey : 0)),
        0xFF, 0xFF, 0xFF,
        0xFF, 0xFF};
    if (i_mic.size() <= kHeaderBytes || !std::equal(expected.begin(), expected.end(), i_mic.begin())) {
        return false;
    }
    const Bytes checksum = Checksum(i_context, i_message, i_mic.first(kHeaderBytes), !m_bAccepts);
    return !checksum.empty() && AreSame(checksum, i_mic.subspan(kHeaderBytes));
}

}  // namespace morwen
