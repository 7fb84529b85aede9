#include "platform/linux/logon/LocalName.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// Far beyond any real name.
constexpr size_t kMostBytes = size_t{1} << 20;

// libkrb5's rules see texts that end at a zero: such a name would be taken for another one.
bool HasZero(const krb5_principal_data& i_principal) noexcept {
    const auto hasZero = [](const krb5_data& i_part) {
        return i_part.length != 0 && std::memchr(i_part.data, 0, i_part.length) != nullptr;
    };
    return hasZero(i_principal.realm) || std::any_of(i_principal.data, i_principal.data + i_principal.length, hasZero);
}

}  // namespace

krb5_error_code LocalName(krb5_context i_context, krb5_const_principal i_principal, std::string& o_name) {
    if (HasZero(*i_principal)) {
        return KRB5_LNAME_NOTRANS;
    }
    krb5_error_code nCode = KRB5_CONFIG_NOTENUFSPACE;
    for (size_t nSize = 256; nCode == KRB5_CONFIG_NOTENUFSPACE && nSize <= kMostBytes; nSize *= 4) {
        o_name.assign(nSize, '\0');
        nCode = krb5_aname_to_localname(i_context, i_principal, static_cast<int>(nSize), o_name.data());
    }
    o_name.resize(std::strlen(o_name.c_str()));
    // Without memory for its rules libkrb5 takes the name as it stands, which may be another user's.
    return HasMemoryRunOut() ? ENOMEM : nCode;
}

}  // namespace morwen
