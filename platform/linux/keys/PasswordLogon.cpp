#include "platform/linux/keys/PasswordLogon.h"

#include <cerrno>

#include <algorithm>
#include <cctype>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

using Harrowlib201::CS_Locker;
using Harrowlib201::SWCharStringConv;

namespace {

char Upper(char i_c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(i_c)));
}

std::string UpperText(std::string i_text) {
    std::transform(i_text.begin(), i_text.end(), i_text.begin(), Upper);
    return i_text;
}

// The realm that a domain stands for: the default realm when the domain is empty, its name or its first label, else the
// domain in upper case, as realms are written.
std::string RealmOfDomain(krb5_context i_context, const std::string& i_domain) {
    Krb5Owner<char*, krb5_free_default_realm> ownRealm(i_context);
    const krb5_error_code nCode = krb5_get_default_realm(i_context, ownRealm.Receive());
    std::string domain = UpperText(i_domain);
    if (nCode == 0) {
        const std::string realm = UpperText(ownRealm.get());
        if (domain.empty() || domain == realm || domain == realm.substr(0, realm.find('.'))) {
            return ownRealm.get();
        }
    } else if (domain.empty()) {
        FailKrb5(i_context, nCode, "looking for the realm of a user without a domain");
    }
    return domain;
}

// A slash parts a name into components as usual; what else has a meaning in a principal's text has none in a user name.
std::string EscapedUser(const std::string& i_user) {
    std::string text;
    for (const char c : i_user) {
        if (c == '\\' || c == '@') {
            text += '\\';
        }
        text += c;
    }
    return text;
}

// In the answer to a logon a failed check of integrity means that the password's key is not the one that the KDC used.
SECURITY_STATUS StatusOfLogon(krb5_error_code i_nCode) {
    const SECURITY_STATUS nStatus = StatusFromKrb5(i_nCode);
    return nStatus == SEC_E_MESSAGE_ALTERED ? SEC_E_LOGON_DENIED : nStatus;
}

// The password in the library's encoding, wiped at the end.
class Password {
public:
    explicit Password(std::u16string_view i_text) : m_utf8(SWCharStringConv::ToUtf8(i_text)) {}
    ~Password() { Harrowlib201::SecureWipe(m_utf8.data(), m_utf8.size()); }
    Password(const Password&) = delete;
    Password& operator=(const Password&) = delete;

    const char* c_str() const noexcept { return m_utf8.c_str(); }

private:
    std::string m_utf8;
};

// A new ticket-granting ticket, put into the cache too.
krb5_error_code GetInitialTicket(krb5_context i_context, krb5_principal i_user, const Password& i_password,
                                 krb5_ccache io_cache, int64_t& o_nEnd) {
    Krb5InitOptions options(i_context);
    if (const krb5_error_code nCode = krb5_get_init_creds_opt_alloc(i_context, options.Receive()); nCode != 0) {
        return nCode;
    }
    krb5_get_init_creds_opt_set_forwardable(options.get(), 1);
    krb5_get_init_creds_opt_set_change_password_prompt(options.get(), 0);
    krb5_error_code nCode = krb5_get_init_creds_opt_set_out_ccache(i_context, options.get(), io_cache);
    krb5_creds ticket{};
    if (nCode == 0) {
        nCode = krb5_get_init_creds_password(i_context, &ticket, i_user, i_password.c_str(), nullptr, nullptr, 0,
                                             nullptr, options.get());
    }
    o_nEnd = SecondsOf(ticket.times.endtime);
    krb5_free_cred_contents(i_context, &ticket);
    return nCode;
}

}  // namespace

PasswordLogon::PasswordLogon(std::string i_domain, std::string i_user, Harrowlib201::SWCharString i_ssPassword)
    : m_domain(std::move(i_domain)), m_user(std::move(i_user)), m_ssPassword(std::move(i_ssPassword)) {}

std::string PasswordLogon::Cache(krb5_context i_context) {
    const CS_Locker locker(m_section);
    if (m_nEnd <= Now(i_context)) {
        LogOn(i_context);
    }
    return m_cacheName;
}

void PasswordLogon::LogOn(krb5_context i_context) {
    const std::string name = EscapedUser(m_user) + "@" + RealmOfDomain(i_context, m_domain);
    Krb5Principal user(i_context);
    krb5_error_code nCode = krb5_parse_name(i_context, name.c_str(), user.Receive());
    if (nCode != 0) {
        Fail(nCode == ENOMEM ? SEC_E_INSUFFICIENT_MEMORY : SEC_E_LOGON_DENIED,
             name + " is no user's name: " + ErrorWords(i_context, nCode));
    }
    krb5_ccache cache = nullptr;
    nCode = krb5_cc_new_unique(i_context, "MEMORY", nullptr, &cache);
    KeptMemoryCache owner(cache);
    Krb5String cacheName(i_context);
    if (nCode == 0) {
        nCode = krb5_cc_get_full_name(i_context, cache, cacheName.Receive());
    }
    if (nCode != 0) {
        FailKrb5(i_context, nCode, "making room for the tickets of " + name);
    }
    int64_t nEnd = 0;
    nCode = GetInitialTicket(i_context, user.get(), Password(m_ssPassword.view()), cache, nEnd);
    if (nCode != 0) {
        throw SspiFailure(
            FailWith(StatusOfLogon(nCode), "logging on " + name + " with a password: " + ErrorWords(i_context, nCode)),
            nCode);
    }
    S_TRACE("ssoplugin: PasswordLogon::LogOn() -- %1 has logged on until %2.", name, TimeText(nEnd));
    m_cacheName = cacheName.get();
    m_cache = std::move(owner);
    m_nEnd = nEnd;
}

}  // namespace morwen
