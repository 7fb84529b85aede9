// The login exports as functions over values: what a host would get, everything freed.
#include "realm/Login.h"

#include <gtest/gtest.h>

namespace morwen {

namespace {

// What a call writes through its pointers.
struct Outputs {
    SSOChar* m_pszKey = nullptr;
    void* m_pvToken = nullptr;
    SSOLength m_nLength = 0;
    ParasSeq* m_pInformation = nullptr;

    LoginResult Take(uint32_t i_nCode) {
        LoginResult result{std::to_string(i_nCode), Narrow(m_pszKey), {}, {}, {}};
        EXPECT_EQ(m_pvToken == nullptr, m_nLength == 0);
        if (i_nCode >= SSO_DENIED) {
            result.m_verdict += TakenRecord(i_nCode);
            EXPECT_TRUE(m_pszKey == nullptr && m_pvToken == nullptr && m_pInformation == nullptr) << result.m_verdict;
        }
        const auto* const pToken = static_cast<const uint8_t*>(m_pvToken);
        result.m_token.assign(pToken, pToken + m_nLength);
        for (const ParasSeq* p = m_pInformation; p != nullptr; p = p->next) {
            (Narrow(p->key) == SSO_KEY_USER_SID ? result.m_userSid : result.m_groupSids) = Narrow(p->value);
        }
        SSOFreeString(m_pszKey);
        SSOFreeBuffer(m_pvToken);
        SSOFreeParameters(m_pInformation);
        return result;
    }
};

}  // namespace

HostText Wide(const std::string& i_ascii) {
    return {i_ascii.begin(), i_ascii.end()};
}

std::string Narrow(const SSOChar* i_pszAscii) {
    const HostText text = i_pszAscii != nullptr ? i_pszAscii : HostText();
    return {text.begin(), text.end()};
}

std::string TakenRecord(uint32_t i_nCode) {
    SSOError* pError = nullptr;
    if (SSOGetError(i_nCode, &pError) != SSO_OK) {
        return "/none";
    }
    EXPECT_EQ(pError->errCode, i_nCode);
    std::string message = "/" + std::to_string(pError->messageId);
    SSOFreeError(pError);
    return message;
}

LoginResult StartLogin(const Client& i_client) {
    const HostText keys[] = {Wide(SSO_KEY_SPN), Wide(SSO_KEY_NEGOTIATE), Wide(SSO_KEY_CHANNEL_BINDINGS)};
    const HostText spn = Wide(i_client.m_spn), on = Wide("1"), channel = Wide(i_client.m_channel);
    ParasSeq parameters[] = {{keys[0].c_str(), SSO_PARAMETER_STRING, spn.c_str(), nullptr},
                             {keys[1].c_str(), SSO_PARAMETER_BOOL, on.c_str(), nullptr},
                             {keys[2].c_str(), SSO_PARAMETER_STRING, channel.c_str(), nullptr}};
    ParasSeq* pLast = parameters;
    pLast = pLast->next = i_client.m_bNegotiate ? &parameters[1] : nullptr;
    (pLast != nullptr ? pLast : parameters)->next = channel.empty() ? nullptr : &parameters[2];
    Outputs out;
    return out.Take(SSOStartLogin(Wide(i_client.m_user).c_str(), Wide(i_client.m_password).c_str(),
                                  Wide("SSPI").c_str(), spn.empty() ? nullptr : parameters, &out.m_pszKey,
                                  &out.m_pvToken, &out.m_nLength));
}

LoginResult ContinueLogin(const std::string& i_key, std::span<const uint8_t> i_token) {
    Outputs out;
    return out.Take(SSOContinueLogin(Wide(i_key).c_str(), i_token.data(), static_cast<SSOLength>(i_token.size()),
                                     &out.m_pvToken, &out.m_nLength));
}

LoginResult AcceptLogin(std::span<const uint8_t> i_token, const std::string& i_key, Information i_eInformation) {
    Outputs out;
    return out.Take(SSOAcceptLogin(Wide("SSPI").c_str(), Wide(i_key).c_str(), i_token.data(),
                                   static_cast<SSOLength>(i_token.size()), &out.m_pvToken, &out.m_nLength,
                                   i_eInformation == Information::Wanted ? &out.m_pInformation : nullptr,
                                   &out.m_pszKey));
}

LoginResult CloseLogin(const std::string& i_key, Information i_eInformation) {
    return AcceptLogin({}, i_key, i_eInformation);
}

LoginResult LogOn(const Client& i_client, Information i_eInformation) {
    LoginResult started = StartLogin(i_client);
    if (started.m_verdict != "1") {
        return started;
    }
    LoginResult accepted = AcceptLogin(started.m_token, {}, i_eInformation);
    std::string verdict = "1," + accepted.m_verdict;
    if (accepted.m_verdict == "1") {
        verdict += "," + ContinueLogin(started.m_key, accepted.m_token).m_verdict;
        accepted = CloseLogin(accepted.m_key, i_eInformation);
        verdict += "," + accepted.m_verdict;
    }
    accepted.m_verdict = verdict;
    return accepted;
}

}  // namespace morwen
