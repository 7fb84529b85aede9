// A login without a KDC: a user's tickets and a service's key, made in a temporary folder.
#pragma once

#include <krb5/krb5.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "bench/ForgedService.h"
#include "fuzz/Invariant.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using Bytes = std::vector<uint8_t>;
constexpr ParasSeq kSpn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"morwen/localhost@FUZZ.TEST", nullptr};

// What a call hands out, empty unless it succeeds; a failure has a record of its code, and null outputs.
struct Result {
    uint32_t m_nCode = 0;
    Bytes m_token;
    std::u16string m_key;
    std::u16string m_information;  // the chain's values

    template <class Call>
    explicit Result(Call i_call) {
        void* pvToken = nullptr;
        SSOLength nLength = 0;
        SSOChar* pszKey = nullptr;
        ParasSeq* pChain = nullptr;
        const uid_t nUser = geteuid();
        m_nCode = i_call(&pvToken, &nLength, &pszKey, &pChain);
        MORWEN_INVARIANT(geteuid() == nUser);
        if (m_nCode >= SSO_DENIED) {
            SSOError* pError = nullptr;
            MORWEN_INVARIANT(pvToken == nullptr && nLength == 0 && pszKey == nullptr && pChain == nullptr);
            MORWEN_INVARIANT(SSOGetError(m_nCode, &pError) == SSO_OK && pError->errCode == m_nCode);
            MORWEN_INVARIANT(SSOGetMessageContent(pError->messageId, &pszKey) == SSO_OK);
            SSOFreeError(pError);
        } else {
            m_token.assign(static_cast<uint8_t*>(pvToken), static_cast<uint8_t*>(pvToken) + nLength);
            m_key = pszKey != nullptr ? pszKey : u"";
            for (const ParasSeq* p = pChain; p != nullptr; p = p->next) {
                m_information.append(p->value).append(u" ");
            }
        }
        SSOFreeBuffer(pvToken);
        SSOFreeString(pszKey);
        SSOFreeParameters(pChain);
    }
};

inline Result Start(const ParasSeq& i_parameters = kSpn) {
    return Result([&i_parameters](void** o_ppvToken, SSOLength* o_pnLength, SSOChar** o_ppszKey, ParasSeq**) {
        return SSOStartLogin(nullptr, nullptr, u"SSPI", &i_parameters, o_ppszKey, o_ppvToken, o_pnLength);
    });
}

inline Result Continue(const std::u16string& i_key, const Bytes& i_answer) {
    return Result([&](void** o_ppvToken, SSOLength* o_pnLength, auto...) {
        return SSOContinueLogin(i_key.c_str(), i_answer.data(), static_cast<SSOLength>(i_answer.size()), o_ppvToken,
                                o_pnLength);
    });
}

// The first half without a key, the closing one with the first's and without a token.
inline Result Accept(const Bytes& i_token, const std::u16string& i_key = u"") {
    return Result([&](void** o_ppvToken, SSOLength* o_pnLength, SSOChar** o_ppszKey, ParasSeq** o_ppChain) {
        return SSOAcceptLogin(u"SSPI", i_key.empty() ? nullptr : i_key.c_str(), i_token.data(),
                              static_cast<SSOLength>(i_token.size()), o_ppvToken, o_pnLength,
                              i_key.empty() ? nullptr : o_ppChain, o_ppszKey);
    });
}

inline void MakeTickets() {
    std::string folder = std::filesystem::temp_directory_path() / "morwen-fuzz.XXXXXX";
    MORWEN_INVARIANT(mkdtemp(folder.data()) != nullptr);
    std::ofstream(folder + "/krb5.conf") << "[libdefaults]\ndefault_realm = FUZZ.TEST\ndns_lookup_kdc = false\n"
                                         << "clockskew = 1000000000\n";  // for authenticators of a corpus
    setenv("KRB5_CONFIG", (folder + "/krb5.conf").c_str(), 1);
    setenv("KRB5CCNAME", ("FILE:" + folder + "/tickets").c_str(), 1);
    setenv("KRB5_KTNAME", ("FILE:" + folder + "/keytab").c_str(), 1);
    setenv("KRB5RCACHENAME", "none:", 1);
    krb5_context context = nullptr;
    krb5_ccache cache = nullptr;
    krb5_principal user = nullptr;
    MORWEN_INVARIANT(krb5_init_context(&context) == 0 && krb5_parse_name(context, "alice", &user) == 0);
    MORWEN_INVARIANT(krb5_cc_default(context, &cache) == 0 && krb5_cc_initialize(context, cache, user) == 0);
    krb5_cc_close(context, cache);
    krb5_free_principal(context, user);
    krb5_free_context(context);
    bench::ForgeService("morwen/localhost@FUZZ.TEST", ENCTYPE_AES256_CTS_HMAC_SHA1_96, 3);
    MORWEN_INVARIANT(SSOInitPackage() == SSO_OK);
}

// The bytes with the input laid over them as XOR from a place on that its first two bytes give.
inline Bytes Changed(Bytes i_bytes, std::span<const uint8_t> i_input) {
    for (size_t i = 2; i < i_input.size(); ++i) {
        i_bytes[(i_input[0] * 256U + i_input[1] + i) % i_bytes.size()] ^= i_input[i];
    }
    return i_bytes;
}

}  // namespace morwen
