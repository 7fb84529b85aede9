// What the checks of one run know.
#include "tools/doctor/Case.h"

#include <pwd.h>
#include <unistd.h>

namespace morwen::doctor {

Krb5Principal ServiceOf(Case& io_case) {
    const std::string& spn = io_case.m_options.m_spn;
    Krb5Principal principal(io_case.Context());
    if (spn.empty()) {
        return principal;
    }
    krb5_error_code nCode =
        krb5_parse_name_flags(io_case.Context(), spn.c_str(), KRB5_PRINCIPAL_PARSE_NO_DEF_REALM, principal.Receive());
    if (nCode == 0 && (principal->length < 2 || principal->data[0].length == 0 || principal->data[1].length == 0)) {
        nCode = KRB5_PARSE_MALFORMED;
    }
    if (nCode == 0 && principal->realm.length == 0) {
        const krb5_data& host = principal->data[1];
        Krb5Owner<char**, krb5_free_host_realm> realms(io_case.Context());
        nCode = krb5_get_host_realm(io_case.Context(), std::string(host.data, host.length).c_str(), realms.Receive());
        if (nCode == 0 && realms.get()[0] != nullptr) {
            nCode = krb5_set_principal_realm(io_case.Context(), principal.get(), realms.get()[0]);
        }
    }
    if (nCode != 0) {
        principal.Reset();
    }
    if (nCode != 0 && !io_case.m_report.Has("spn-malformed")) {
        io_case.m_report.Fail("spn-malformed", "the service's principal " + spn, io_case.Words(nCode),
                              "give it as service/host, for example --spn morwen/server.example.org");
    }
    return principal;
}

std::string ThisAccount() {
    const passwd* const pRecord = getpwuid(geteuid());
    return (pRecord != nullptr ? std::string(pRecord->pw_name) : "an account without a name") + " (uid " +
           std::to_string(geteuid()) + ")";
}

void Enumerate(std::string& io_list, std::string_view i_item, std::string_view i_separator) {
    io_list.append(io_list.empty() ? std::string_view() : i_separator).append(i_item);
}

std::string Quoted(const std::string& i_text) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
    if (!i_text.empty() && i_text.find_first_not_of(kPlain) == std::string::npos) {
        return i_text;
    }
    std::string quoted = "'";
    for (const char c : i_text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace morwen::doctor
