#include "platform/linux/logon/LocalName.h"

#include <profile.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// Far beyond any real name.
constexpr size_t kMostBytes = size_t{1} << 20;

std::string_view TextOf(const krb5_data& i_data) noexcept {
    return {i_data.data, i_data.length};
}

// libkrb5's rules see texts that end at a zero: such a name would be taken for another one.
bool HasZero(const krb5_principal_data& i_principal) noexcept {
    const auto hasZero = [](const krb5_data& i_part) { return TextOf(i_part).find('\0') != std::string_view::npos; };
    return hasZero(i_principal.realm) || std::any_of(i_principal.data, i_principal.data + i_principal.length, hasZero);
}

std::string DefaultRealm(krb5_context i_context) {
    char* pszRealm = nullptr;
    if (krb5_get_default_realm(i_context, &pszRealm) != 0) {
        return {};
    }
    const Krb5Owner<char*, krb5_free_default_realm> owner(i_context, pszRealm);
    return pszRealm;
}

// Of the default realm's section, as the context sees it.
std::vector<std::string> RealmValues(krb5_context i_context, const std::string& i_realm, const char* i_pszRelation,
                                     const char* i_pszName) {
    std::vector<std::string> values;
    profile_t profile = nullptr;
    char** ppszValues = nullptr;
    const char* const aNames[] = {"realms", i_realm.c_str(), i_pszRelation, i_pszName, nullptr};
    if (krb5_get_profile(i_context, &profile) != 0) {
        return values;
    }
    if (profile_get_values(profile, aNames, &ppszValues) == 0) {
        for (char** ppszValue = ppszValues; *ppszValue != nullptr; ++ppszValue) {
            values.emplace_back(*ppszValue);
        }
        profile_free_list(ppszValues);
    }
    profile_release(profile);
    return values;
}

// The names are written as the library writes them, without a realm.
bool IsInNames(krb5_context i_context, krb5_const_principal i_principal, const std::string& i_realm) {
    for (const int nFlags :
         {KRB5_PRINCIPAL_UNPARSE_NO_REALM, KRB5_PRINCIPAL_UNPARSE_NO_REALM | KRB5_PRINCIPAL_UNPARSE_DISPLAY}) {
        Krb5Text name(i_context);
        if (krb5_unparse_name_flags(i_context, i_principal, nFlags, name.Receive()) == 0 &&
            !RealmValues(i_context, i_realm, "auth_to_local_names", name.get()).empty()) {
            return true;
        }
    }
    return false;
}

// The only text that the regular expression fits; nothing for a pattern.
std::optional<std::string> OnlyMatch(std::string_view i_expression) {
    std::string text;
    for (; !i_expression.empty(); i_expression.remove_prefix(1)) {
        const char c = i_expression.front();
        if (i_expression.size() > 1 && c == '\\' && std::ispunct(static_cast<unsigned char>(i_expression[1])) != 0) {
            text += i_expression[1];
            i_expression.remove_prefix(1);
        } else if (i_expression.size() > 2 && c == '[' && i_expression[2] == ']' && i_expression[1] != '^') {
            text += i_expression[1];
            i_expression.remove_prefix(2);
        } else if (std::string_view("^$.[]|()*+?{}\\").find(c) != std::string_view::npos) {
            return std::nullopt;
        } else {
            text += c;
        }
    }
    return text;
}

// Whom the rule names; nothing when that is not one principal.
std::optional<std::string> NamedBy(std::string_view i_rule, bool& o_bTwoParts) {
    constexpr std::string_view kOne = "RULE:[1:$1@$0](";
    constexpr std::string_view kTwo = "RULE:[2:$1/$2@$0](";
    o_bTwoParts = i_rule.starts_with(kTwo);
    if (!o_bTwoParts && !i_rule.starts_with(kOne)) {
        return std::nullopt;
    }
    i_rule.remove_prefix(o_bTwoParts ? kTwo.size() : kOne.size());
    const size_t nEnd = i_rule.find(')');
    return nEnd == std::string_view::npos ? std::nullopt : OnlyMatch(i_rule.substr(0, nEnd));
}

}  // namespace

krb5_error_code LocalName(krb5_context i_context, krb5_const_principal i_principal, std::string& o_name) {
    if (HasZero(*i_principal)) {
        return KRB5_LNAME_NOTRANS;
    }
    const std::string realm = DefaultRealm(i_context);
    if (TextOf(i_principal->realm) != realm && IsInNames(i_context, i_principal, realm)) {
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

std::string WhoseRules(krb5_context i_context) {
    const std::string realm = DefaultRealm(i_context);
    return realm.empty() ? "the rules of no realm (krb5.conf has no default_realm)"
                         : "the rules of the default realm, " + realm;
}

bool IsMappedExplicitly(krb5_context i_context, krb5_const_principal i_principal) {
    const std::string realm = DefaultRealm(i_context);
    if (IsInNames(i_context, i_principal, realm)) {
        return TextOf(i_principal->realm) == realm;
    }
    if (i_principal->length < 1 || i_principal->length > 2) {
        return false;
    }
    const bool bTwoParts = i_principal->length == 2;
    std::string own(TextOf(i_principal->data[0]));
    own.append(bTwoParts ? "/" : "").append(bTwoParts ? TextOf(i_principal->data[1]) : std::string_view());
    own.append("@").append(TextOf(i_principal->realm));
    for (const std::string& rule : RealmValues(i_context, realm, "auth_to_local", nullptr)) {
        bool bRuleForTwo = false;
        const auto named = NamedBy(rule, bRuleForTwo);
        if (!named || (*named == own && bRuleForTwo == bTwoParts)) {
            return named.has_value();
        }
    }
    return false;
}

}  // namespace morwen
