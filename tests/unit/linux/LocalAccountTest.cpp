// Which principals are accounts of this machine?
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/logon/LocalAccount.h"

namespace morwen {
namespace {

constexpr const char* kConfiguration = R"([libdefaults]
default_realm = HERE
[realms]
HERE = {
    auth_to_local_names = {
        games = bin
    }
    auth_to_local = RULE:[1:$1@$0](carol@OTHER[.]TEST)s/.*/bin/
    auth_to_local = RULE:[2:$1/$2@$0](svc/x@HERE)s/.*/sys/
    auth_to_local = RULE:[1:$1@$0](.*@ELSE)s/@.*//
    auth_to_local = RULE:[1:$1@$0](late@HERE)s/.*/bin/
    auth_to_local = DEFAULT
}
)";

TEST(LocalAccount, IsThatOfTheWholeNameOfWhomTheKdcNames) {
    const auto path = std::filesystem::temp_directory_path() / ("krb5.conf" + std::to_string(getpid()));
    std::ofstream(path) << kConfiguration;
    setenv("KRB5_CONFIG", path.c_str(), 1);
    krb5_context context = nullptr;
    ASSERT_EQ(krb5_init_context(&context), 0);
    unsetenv("KRB5_CONFIG");
    using Name = std::optional<std::u16string>;
    const auto expect = [context](const char* i_pszName, const Name& i_account, long i_nUser) {
        Krb5Principal principal(context);
        EXPECT_EQ(krb5_parse_name(context, i_pszName, principal.Receive()), 0);
        SECURITY_STATUS nStatus = SEC_E_OK;
        const auto account = LocalAccount(context, principal.get(), i_account, nStatus);
        EXPECT_EQ(account ? long{account->m_nUser} : -1, i_nUser) << i_pszName;
        EXPECT_EQ(account.has_value(), nStatus == SEC_E_OK) << i_pszName;
    };
    const std::tuple<const char*, Name, long> kCases[] = {
        {"bin@HERE", {}, 2},
        {"bin@HERE", u"bin", 2},
        {"bin@HERE", u"BIN", 2},
        {"bin@HERE", u"bin$", -1},
        {"bin@HERE", u"", -1},
        {"bin@HERE", u"bi", -1},
        {"bin@HERE", u"b\u0131n", -1},
        {"BIN@HERE", u"bin", -1},  // there is no such local account
        {"bin@ELSE", u"Bin", 2},
        {"bin@ELSE", u"bin$", -1},
        {"bin@ELSEWHERE", u"bin", -1},
        {"games@HERE", u"mallory", 2},  // whom the administrator has named
        {"games@ELSE", u"games", -1},   // but not this one
        {"games@ELSE", {}, -1},
        {"carol@OTHER.TEST", u"somebody", 2},
        {"carol@OTHERXTEST", u"carol", -1},
        {"svc/x@HERE", u"account$", 3},
        {"late@HERE", {}, 2},
        {"late@HERE", u"somebody", -1},  // behind a pattern
        {"bin\\0@HERE", {}, -1},
        {"bin\\0x@HERE", {}, -1},
        {"bin@HERE\\0", {}, -1},
        {"bin/x@HERE", {}, -1},
        {"\\0@HERE", {}, -1},
    };
    for (const auto& [pszName, account, nUser] : kCases) {
        expect(pszName, account, nUser);
    }
    for (std::string realm : {"ELSE", "OTHER.TEST"}) {  // for the rest of the process, in which this test may run again
        krb5_principal_data naming{};
        naming.realm = {0, static_cast<unsigned>(realm.size()), realm.data()};
        NoteNamingRealm(naming);
    }
    expect("bin@ELSE", {}, -1);
    expect("bin@ELSE", u"bin", 2);
    expect("carol@OTHER.TEST", {}, 2);
    expect("bin@HERE", {}, 2);
    krb5_free_context(context);
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace morwen
