// Is a name shown so that it can do nothing to who reads it?
#include "platform/linux/krb5/Krb5Words.h"

#include <gtest/gtest.h>

#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {
namespace {

TEST(Krb5Words, NamesWithoutControlCharacters) {
    const Krb5ContextLease lease = LendKrb5Context();
    const auto shown = [&lease](const char* i_pszName) {
        Krb5Principal principal(lease.get());
        EXPECT_EQ(krb5_parse_name(lease.get(), i_pszName, principal.Receive()), 0);
        return PrincipalText(lease.get(), principal.get());
    };
    EXPECT_EQ(shown("al\x1B[2Jice\r@HE\x7FRE"), "al?[2Jice?@HE?RE");
    EXPECT_EQ(shown("j\xC3\xBCrgen\\n\\0@HERE"), "j\xC3\xBCrgen\\n\\0@HERE");
    EXPECT_EQ(PrincipalText(lease.get(), nullptr), "an unreadable name");
    // The library's own words name strangers too.
    krb5_set_error_message(lease.get(), KRB5_KT_NOTFOUND, "no key for \x1B]0;\xC2\x9B\x07\xC3\x9B\xC2");
    EXPECT_EQ(ErrorWords(lease.get(), KRB5_KT_NOTFOUND), "no key for ?]0;???\xC3\x9B\xC2");
    EXPECT_EQ(shown("a\xC2\x9B"
                    "2J\xE2\x80\xAE"
                    "b\xE2\x81\xA6\xD8\x9C\x9B\xE2\x82\xA7\xE2\x81\xBF\xC4\x9B\xF0\x90\x8C\x80@HERE"),
              "a??2J???b??????\xE2\x82\xA7\xE2\x81\xBF\xC4\x9B\xF0\x90\x8C\x80@HERE");
    FailWith(SEC_E_WRONG_PRINCIPAL, "\x1B[2J");
    EXPECT_EQ(FailureText(SEC_E_WRONG_PRINCIPAL), "?[2J");
}

TEST(Krb5Words, PathsBehindNames) {
    for (const auto& [pszName, pszPath] :
         {std::pair("FILE:/etc/krb5.keytab", "/etc/krb5.keytab"), std::pair("WRFILE:/k", "/k"),
          std::pair("/k:1", "/k:1"), std::pair("k", "k"), std::pair("MEMORY:k", ""), std::pair("DIR:/tickets", ""),
          std::pair("", "")}) {
        EXPECT_EQ(PathOfKrb5Name(pszName), pszPath) << pszName;
    }
}

}  // namespace
}  // namespace morwen
