// The login exports as functions over values: what a host would get, everything freed.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "morwen/morwenplugin.h"

namespace morwen {

using Bytes = std::vector<uint8_t>;
using HostText = std::basic_string<SSOChar>;

struct LoginResult {
    std::string m_verdict;  // the code; of a failure "code/message", with the message of the thread's error record
    std::string m_key;
    Bytes m_token;
    std::string m_userSid;  // logon information, both empty when none was handed out
    std::string m_groupSids;
};

struct Client {
    std::string m_user = {};  // empty: the tickets of the default cache
    std::string m_password = {};
    std::string m_spn = "morwen/localhost";  // empty: the parameter is left out
    bool m_bNegotiate = false;
    std::string m_channel = {};  // empty: the parameter is left out
};

enum class Information { Wanted, NotWanted };

// ASCII only.
HostText Wide(const std::string& i_ascii);
std::string Narrow(const SSOChar* i_pszAscii);  // null is the empty text

// "/message" from the thread's error record, which it takes; "/none" without one.
std::string TakenRecord(uint32_t i_nCode);

// Each fails the test when the call breaks a promise that holds for every call, such as outputs on failure.
LoginResult StartLogin(const Client& i_client = {});
LoginResult ContinueLogin(const std::string& i_key, std::span<const uint8_t> i_token);
LoginResult AcceptLogin(std::span<const uint8_t> i_token, const std::string& i_key = {},
                        Information i_eInformation = Information::Wanted);
// The accepting side's last pass.
LoginResult CloseLogin(const std::string& i_key, Information i_eInformation = Information::Wanted);

// Both sides, up to the end or the first failure. The verdict is that of start, accept, continue and close; the rest
// comes from the accepting side's last pass.
LoginResult LogOn(const Client& i_client = {}, Information i_eInformation = Information::Wanted);

inline constexpr const char* kLoggedOn = "1,1,0,2";
inline constexpr const char* kUnusable = "100/42254";

}  // namespace morwen
