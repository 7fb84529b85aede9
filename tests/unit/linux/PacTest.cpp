// Are a user's SIDs those that the KDC has signed, whatever the bytes?
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "platform/linux/identity/TokenIdentity.h"
#include "platform/linux/keys/AcceptorKeys.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/pac/KeptPacs.h"
#include "platform/linux/wire/PacLogonInfo.h"

namespace morwen {
namespace {

using Bytes = std::vector<uint8_t>;

Sid SidOf(const std::string& i_text) {
    char* pszRest = nullptr;
    Sid sid(std::strtoull(i_text.c_str() + std::strlen("S-1-"), &pszRest, 0), {});
    while (*pszRest == '-') {
        EXPECT_TRUE(sid.Append(static_cast<uint32_t>(std::strtoul(pszRest + 1, &pszRest, 10))));
    }
    return sid;
}

struct RecordedPac {
    explicit RecordedPac(const std::string& i_name) {
        std::ifstream file(MORWEN_PAC_FOLDER "/" + i_name + ".pac", std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator<char>(file), {});
        std::ifstream expected(MORWEN_PAC_FOLDER "/" + i_name + ".sids");
        expected >> m_client >> m_nTime;
        for (std::string sid; expected >> sid;) {
            m_sids ? m_sids->m_groups.push_back(SidOf(sid)) : void(m_sids = TokenSids{SidOf(sid), {}});
        }
        EXPECT_EQ(krb5_init_context(&m_context), 0);
        m_pKeys = std::make_unique<AcceptorKeys>(m_context, "FILE:" MORWEN_PAC_FOLDER "/service.keytab");
    }
    ~RecordedPac() { krb5_free_context(m_context); }

    // In a ticket as it is once it is decrypted.
    // What is not refused must be read as it was recorded, and is kept.
    bool IsRefused(Bytes i_pac, int i_nPacs = 1) {
        krb5_authdata pac{KV5M_AUTHDATA, KRB5_AUTHDATA_WIN2K_PAC, static_cast<unsigned>(i_pac.size()), i_pac.data()};
        krb5_authdata* list[] = {&pac, i_nPacs > 1 ? &pac : nullptr, nullptr};
        Krb5Principal client(m_context);
        EXPECT_EQ(krb5_parse_name(m_context, (m_client + "@PAC.TEST").c_str(), client.Receive()), 0);
        krb5_enc_tkt_part part{};
        part.client = client.get();
        part.times.authtime = m_nTime;
        part.authorization_data = list;
        const krb5_ticket ticket{0, nullptr, {0, ENCTYPE_AES256_CTS_HMAC_SHA1_96, 2, {}}, &part};
        try {
            const PacInformation information = CheckPac(m_context, &m_pKeys->Entries().front().key, ticket);
            m_info = information.m_pLogonInfo ? std::optional(*information.m_pLogonInfo) : std::nullopt;
            EXPECT_EQ(information.m_accountName,
                      m_info ? std::optional(std::u16string(m_client.begin(), m_client.end())) : std::nullopt);
            EXPECT_TRUE((m_info ? ReadPacLogonInfo(*m_info) : std::nullopt) == m_sids);
            return false;
        } catch (const SspiFailure& failure) {
            EXPECT_EQ(failure.Status(), SEC_E_LOGON_DENIED);
            return true;
        }
    }

    krb5_context m_context = nullptr;
    std::unique_ptr<AcceptorKeys> m_pKeys;
    Bytes m_bytes;
    std::optional<Bytes> m_info;
    std::string m_client;
    krb5_timestamp m_nTime = 0;
    std::optional<TokenSids> m_sids;
};

Bytes Flipped(Bytes i_bytes, size_t i_nBit) {
    i_bytes[i_nBit / 8] = static_cast<uint8_t>(i_bytes[i_nBit / 8] ^ (1U << (i_nBit % 8)));
    return i_bytes;
}

TEST(Pac, CountsWhenItIsSignedForThisServiceAndUser) {
    for (const char* const pszName : {"plain", "nested", "many", "resource", "foreign", "none"}) {
        SCOPED_TRACE(pszName);
        RecordedPac pac(pszName);
        const Bytes& bytes = pac.m_bytes;
        EXPECT_FALSE(pac.IsRefused(bytes));
        EXPECT_TRUE(pac.IsRefused(bytes, 2));
        const Bytes info = pac.m_info.value_or(Bytes());
        size_t nHarmless = 0;
        for (size_t i = 0; i < 8 * bytes.size(); ++i) {
            nHarmless += pac.IsRefused(Flipped(bytes, i)) ? 0U : 1U;
            EXPECT_TRUE(i >= bytes.size() || pac.IsRefused({bytes.data(), bytes.data() + i})) << i;
            EXPECT_FALSE(i < info.size() && ReadPacLogonInfo(Bytes(info.data(), info.data() + i))) << i;
            const bool bTry = i % 3 == 0 && i < 8 * info.size();
            const auto sids = bTry ? ReadPacLogonInfo(Flipped(info, i)) : std::nullopt;
            EXPECT_TRUE(!sids || sids->m_groups.size() < info.size() / 8);
        }
        EXPECT_LE(nHarmless, 8U * 12) << "the KDC's own signature, for which a service has no key";
        pac.m_client = "somebody";
        EXPECT_TRUE(pac.IsRefused(bytes));
    }
}

TEST(Pac, IsReadAsItsFlagsSayOrNotAtAll) {
    RecordedPac pac("resource");
    Bytes info = pac.IsRefused(pac.m_bytes) ? Bytes() : *pac.m_info;
    constexpr uint32_t kDomain = 436;  // where its SID is
    // In threes: a position, the number of four bytes that comes there, how many groups are read then (0: refused).
    constexpr uint32_t kCases[] = {
        0,           0x00081001, 13, 0,           0x00080001, 0, 0,   0x00081002, 0,  0,       0x00101001, 0,
        8,           0x7FFFFFFF, 0,  16,          0,          0, 120, 0,          13, 128,     0xFFFFFFFF, 0,
        128,         4,          0,  132,         0,          0, 136, 0,          5,  136,     0x20,       10,
        136,         0x200,      8,  172,         0,          0, 216, 0x20000001, 0,  220,     0,          0,
        224,         0,          0,  228,         0x10000001, 0, 232, 0,          0,  kDomain, 5,          0,
        kDomain + 4, 0x0402,     0,  kDomain + 4, 0x0501,     0};
    const auto count = [&info](size_t i_nAt, uint32_t i_nValue) {
        Bytes changed = info;
        std::memcpy(changed.data() + i_nAt, &i_nValue, sizeof i_nValue);
        const auto sids = ReadPacLogonInfo(changed);
        return sids ? sids->m_groups.size() : 0;
    };
    for (size_t i = 0; i < std::size(kCases); i += 3) {
        EXPECT_EQ(count(kCases[i], kCases[i + 1]), kCases[i + 2]) << i / 3;
    }
    info.insert(info.begin() + kDomain + 28, 44, 0);
    info[kDomain] = info[kDomain + 5] = 15;
    EXPECT_EQ(count(8, static_cast<uint32_t>(info.size() - 16)), 0U) << "the domain's SID is full";
    EXPECT_FALSE(SidsOf({std::make_shared<Bytes>(1), UnixAccount{1, 1, {1}}, false, nullptr}))
        << "the local account does not stand in";
}

TEST(Pac, IsKeptForTheVerySameTicketAndKey) {
    KeptPacs kept;
    const krb5_keyblock key{};
    const krb5_keyblock other{};
    const Bytes sealed(100, 7);
    const auto pPac = std::make_shared<const PacInformation>();
    const auto find = [&](Bytes i_sealed, const krb5_keyblock* i_pKey, krb5_enctype i_nType, krb5_kvno i_nVersion) {
        krb5_enc_data part{0, i_nType, i_nVersion, {0, static_cast<unsigned>(i_sealed.size()), nullptr}};
        part.ciphertext.data = reinterpret_cast<char*>(i_sealed.data());
        const auto pFound = kept.Find(part, i_pKey);
        if (pFound == nullptr) {
            kept.Keep(part, i_pKey, pPac);
        }
        return pFound != nullptr;
    };
    EXPECT_FALSE(find(sealed, &key, 18, 2));
    EXPECT_TRUE(find(sealed, &key, 18, 2));
    // Each in the same place as the one before.
    EXPECT_FALSE(find(sealed, &other, 18, 2) || find(sealed, &key, 17, 2) || find(sealed, &key, 18, 3) ||
                 find(Bytes(99, 7), &key, 18, 2) || find(Flipped(sealed, 799), &key, 18, 2) ||
                 find(sealed, nullptr, 18, 2) || find({}, &key, 18, 2));
    EXPECT_FALSE(find(Bytes(6000, 7), &key, 18, 2) || find(Bytes(6000, 7), &key, 18, 2)) << "a large one";
}

}  // namespace
}  // namespace morwen
