#include "bench/ForgedService.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <vector>

#include "platform/linux/krb5/Krb5Owners.h"

// libkrb5 exports both for its KDC, but its header does not declare them.
extern "C" {
krb5_error_code krb5_encrypt_tkt_part(krb5_context i_context, const krb5_keyblock* i_pKey, krb5_ticket* io_pTicket);
krb5_error_code encode_krb5_ticket(const krb5_ticket* i_pTicket, krb5_data** o_ppData);
}

namespace morwen::bench {

namespace {

constexpr krb5_kvno kKeyVersion = 1;
constexpr krb5_deltat kLifetime = 36000;

void Check(krb5_error_code i_nCode, const char* i_pszCall) {
    if (i_nCode != 0) {
        throw std::runtime_error(std::string("forging a ticket: ") + i_pszCall + " failed with " +
                                 std::to_string(i_nCode));
    }
}

krb5_data DataOf(std::vector<uint8_t>& i_bytes) {
    krb5_data data{};
    data.data = reinterpret_cast<char*>(i_bytes.data());
    data.length = static_cast<unsigned>(i_bytes.size());
    return data;
}

// KERB_VALIDATION_INFO as NDR stores it: no texts, the domain S-1-5-21-1-2-3, the user 1000, groups from 2000 on.
std::vector<uint8_t> LogonInfo(uint32_t i_nGroups) {
    constexpr uint32_t kPointer = 0x20000;
    std::vector<uint32_t> words;
    const auto none = [&words](size_t i_nWords) { words.resize(words.size() + i_nWords); };
    none(12 + 12 + 1);  // times, texts, counts of logons
    words.insert(words.end(), {1000, 513, i_nGroups, kPointer});
    none(1 + 4 + 4);  // flags, session key, two texts
    words.push_back(kPointer);
    none(10 + 2 + 1 + 2);  // reserve, times and counts; no further security identifiers
    words.push_back(i_nGroups);
    for (uint32_t i = 0; i < i_nGroups; ++i) {
        words.insert(words.end(), {2000 + i, 7});
    }
    words.insert(words.end(), {4, 0x0401, 0x05000000, 21, 1, 2, 3});
    const auto nBytes = static_cast<uint32_t>(4 + 4 * words.size());
    words.insert(words.begin(), {0x00081001, 0xCCCCCCCC, nBytes, 0, kPointer});
    std::vector<uint8_t> bytes;
    for (const uint32_t nWord : words) {
        for (int nShift = 0; nShift < 32; nShift += 8) {
            bytes.push_back(static_cast<uint8_t>(nWord >> nShift));
        }
    }
    return bytes;
}

using AuthorizationData = Krb5Owner<krb5_authdata**, krb5_free_authdata>;

void AddPac(krb5_context i_context, krb5_principal i_client, const krb5_keyblock& i_key, krb5_timestamp i_nNow,
            uint32_t i_nGroups, AuthorizationData& o_data) {
    std::vector<uint8_t> logonInfo = LogonInfo(i_nGroups);
    const krb5_data buffer = DataOf(logonInfo);
    Krb5Owner<krb5_pac, krb5_pac_free> pac(i_context);
    Krb5Data bytes(i_context);
    Check(krb5_pac_init(i_context, pac.Receive()), "krb5_pac_init");
    Check(krb5_pac_add_buffer(i_context, pac.get(), KRB5_PAC_LOGON_INFO, &buffer), "krb5_pac_add_buffer");
    Check(krb5_pac_sign(i_context, pac.get(), i_nNow, i_client, &i_key, &i_key, bytes.Receive()), "krb5_pac_sign");
    krb5_authdata element{};
    element.ad_type = KRB5_AUTHDATA_WIN2K_PAC;
    element.length = bytes->length;
    element.contents = reinterpret_cast<krb5_octet*>(bytes->data);
    std::array<krb5_authdata*, 2> elements = {&element, nullptr};
    Check(krb5_encode_authdata_container(i_context, KRB5_AUTHDATA_IF_RELEVANT, elements.data(), o_data.Receive()),
          "krb5_encode_authdata_container");
}

}  // namespace

size_t ForgeService(const std::string& i_service, krb5_enctype i_nEnctype, uint32_t i_nGroups, krb5_flags i_nFlags) {
    Krb5Owner<krb5_context, [](krb5_context, krb5_context i_context) { krb5_free_context(i_context); }> owner(nullptr);
    Check(krb5_init_context(owner.Receive()), "krb5_init_context");
    const krb5_context context = owner.get();
    Krb5CacheOwner cache(context);
    Krb5Keytab keytab(context);
    Krb5Principal client(context);
    Krb5Principal server(context);
    Check(krb5_cc_default(context, cache.Receive()), "krb5_cc_default");
    Check(krb5_kt_default(context, keytab.Receive()), "krb5_kt_default");
    Check(krb5_cc_get_principal(context, cache.get(), client.Receive()), "krb5_cc_get_principal");
    Check(krb5_parse_name(context, i_service.c_str(), server.Receive()), "krb5_parse_name");

    krb5_keytab_entry entry{};
    entry.principal = server.get();
    entry.vno = kKeyVersion;
    Check(krb5_c_make_random_key(context, i_nEnctype, &entry.key), "krb5_c_make_random_key");
    const Krb5Owner<krb5_keyblock*, krb5_free_keyblock_contents> serviceKey(context, &entry.key);
    Check(krb5_kt_add_entry(context, keytab.get(), &entry), "krb5_kt_add_entry");
    krb5_keyblock sessionKey{};
    Check(krb5_c_make_random_key(context, i_nEnctype, &sessionKey), "krb5_c_make_random_key");
    const Krb5Owner<krb5_keyblock*, krb5_free_keyblock_contents> sessionKeyOwner(context, &sessionKey);

    AuthorizationData authorization(context);
    const auto nNow = static_cast<krb5_timestamp>(std::time(nullptr));
    if (i_nGroups != 0) {
        AddPac(context, client.get(), entry.key, nNow, i_nGroups, authorization);
    }
    krb5_enc_tkt_part content{};
    content.flags = i_nFlags;
    content.session = &sessionKey;
    content.client = client.get();
    content.transited.tr_type = KRB5_DOMAIN_X500_COMPRESS;
    content.times = {nNow, nNow, nNow + kLifetime, 0};
    content.authorization_data = authorization.get();
    krb5_ticket ticket{};
    ticket.server = server.get();
    ticket.enc_part2 = &content;
    Check(krb5_encrypt_tkt_part(context, &entry.key, &ticket), "krb5_encrypt_tkt_part");
    const Krb5Owner<krb5_data*, krb5_free_data_contents> cipher(context, &ticket.enc_part.ciphertext);
    ticket.enc_part.kvno = kKeyVersion;
    Krb5Owner<krb5_data*, krb5_free_data> encoded(context);
    Check(encode_krb5_ticket(&ticket, encoded.Receive()), "encode_krb5_ticket");

    krb5_creds credentials{};
    credentials.client = client.get();
    credentials.server = server.get();
    credentials.keyblock = sessionKey;
    credentials.times = content.times;
    credentials.ticket_flags = content.flags;
    credentials.ticket = *encoded.get();
    Check(krb5_cc_store_cred(context, cache.get(), &credentials), "krb5_cc_store_cred");
    return encoded->length;
}

}  // namespace morwen::bench
