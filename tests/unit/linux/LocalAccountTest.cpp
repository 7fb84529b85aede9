// Which principals are accounts of this machine?
#include <gtest/gtest.h>

#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/logon/LocalAccount.h"

namespace morwen {
namespace {

TEST(LocalAccount, IsThatOfTheWholeNameOnly) {
    const Krb5ContextLease lease = LendKrb5Context();
    const krb5_context context = lease.get();
    ASSERT_EQ(krb5_set_default_realm(context, "HERE"), 0);
    const auto userOf = [context](const char* i_pszName) -> long {
        Krb5Principal principal(context);
        EXPECT_EQ(krb5_parse_name(context, i_pszName, principal.Receive()), 0);
        SECURITY_STATUS nStatus = SEC_E_OK;
        const auto account = LocalAccount(context, principal.get(), nStatus);
        EXPECT_EQ(account.has_value(), nStatus == SEC_E_OK) << i_pszName;
        return account ? long{account->m_nUser} : -1;
    };
    EXPECT_EQ(userOf("bin@HERE"), 2);
    for (const char* pszName :
         {"bin\\0@HERE", "bin\\0x@HERE", "bin@HERE\\0", "bin@ELSEWHERE", "bin/x@HERE", "\\0@HERE"}) {
        EXPECT_EQ(userOf(pszName), -1) << pszName;
    }
}

}  // namespace
}  // namespace morwen
