#include "platform/linux/krb5/Krb5Words.h"

#include <array>
#include <ctime>

#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen {

std::string PrincipalText(krb5_context i_context, krb5_const_principal i_principal) {
    Krb5Text text(i_context);
    if (i_principal == nullptr || krb5_unparse_name(i_context, i_principal, text.Receive()) != 0) {
        return "an unreadable name";
    }
    std::string name = text.get();
    HideControls(name);
    return name;
}

std::string ErrorWords(krb5_context i_context, krb5_error_code i_nCode) {
    struct Words {
        krb5_context m_context;
        const char* m_pszText;
        ~Words() { krb5_free_error_message(m_context, m_pszText); }
    };
    const Words words{i_context, krb5_get_error_message(i_context, i_nCode)};
    std::string text = words.m_pszText;
    HideControls(text);
    return text;
}

std::string TimeText(int64_t i_nUtcSeconds) {
    const std::time_t nTime = i_nUtcSeconds;
    std::tm date = {};
    std::array<char, 64> aText{};
    if (gmtime_r(&nTime, &date) == nullptr ||
        std::strftime(aText.data(), aText.size(), "%Y-%m-%d %H:%M:%S UTC", &date) == 0) {
        return "an unknown time";
    }
    return aText.data();
}

int64_t Now(krb5_context i_context) noexcept {
    krb5_timestamp nNow = 0;
    return krb5_timeofday(i_context, &nNow) == 0 ? SecondsOf(nNow) : std::time(nullptr);
}

std::string PathOfKrb5Name(const std::string& i_name) {
    const size_t nColon = i_name.find(':');
    if (nColon == std::string::npos || i_name.starts_with('/')) {
        return i_name;
    }
    const std::string kind = i_name.substr(0, nColon);
    return kind == "FILE" || kind == "WRFILE" ? i_name.substr(nColon + 1) : std::string();
}

krb5_data DataOf(std::span<const uint8_t> i_bytes) noexcept {
    krb5_data data{};
    data.length = static_cast<unsigned int>(i_bytes.size());
    data.data = reinterpret_cast<char*>(const_cast<uint8_t*>(i_bytes.data()));
    return data;
}

std::span<const uint8_t> BytesOf(const krb5_data& i_data) noexcept {
    return {reinterpret_cast<const uint8_t*>(i_data.data), i_data.length};
}

}  // namespace morwen
