// Users of a directory: who they are comes from their tickets, as a real directory server makes them.
#include <algorithm>

#include "realm/KeptContextTest.h"

namespace morwen {
namespace {

class Directory : public KeptContextTest {
protected:
    static void SetUpTestSuite() {}  // this realm has users of its own
};

// What the directory itself says of a user: the user, the group of all users, and the groups of its domain, also those
// that other groups bring; and what the KDC adds: that it is the one who says so.
LoginResult Listed(const std::string& i_user) {
    RunCommand("ldbsearch -H $MORWEN_REALM_DIR/samba/private/sam.ldb -s base -b CN=" + i_user +
               ",CN=Users,DC=morwen,DC=test objectSid tokenGroups");
    LoginResult listed;
    std::string primary;
    std::ifstream file(RealmPath("output"));
    for (std::string name, sid; file >> name;) {
        if (name == "objectSid:" && file >> sid) {
            listed.m_userSid = sid;
            primary = sid.substr(0, sid.rfind('-')) + "-513;";
        } else if (name == "tokenGroups:" && file >> sid && sid.starts_with("S-1-5-21-")) {
            listed.m_groupSids += sid + ";";
        }
    }
    const size_t nAt = listed.m_groupSids.find(primary);
    EXPECT_NE(nAt, std::string::npos) << i_user;
    listed.m_groupSids = primary + listed.m_groupSids.erase(nAt, primary.size()) + "S-1-18-1;";
    return listed;
}

TEST_F(Directory, UsersAreWhoTheDirectorySaysTheyAre) {
    const std::pair<const char*, ptrdiff_t> kMembers[] = {{"alice", 2}, {"bob", 2}, {"nested", 5}, {"many", 302}};
    for (const auto& [pszUser, nGroups] : kMembers) {
        const LoginResult listed = Listed(pszUser);
        EXPECT_EQ(std::count(listed.m_groupSids.begin(), listed.m_groupSids.end(), ';'), nGroups) << pszUser;
        const LoginResult login = LogOn(PasswordOf(pszUser));
        EXPECT_EQ(login.m_verdict, kLoggedOn) << pszUser;
        EXPECT_EQ(login.m_userSid, listed.m_userSid) << pszUser;
        EXPECT_EQ(login.m_groupSids, listed.m_groupSids) << pszUser;
        // Only the longest list does not fit where lists are read first.
        EXPECT_EQ(m_trace.Contains("GetUserData() -- Reallocating buffer."), nGroups == 302) << pszUser;
    }
    // Such a ticket does not fit the server's datagrams, which end at 1,400 bytes.
    EXPECT_GT(HalfLogin(PasswordOf("many")).m_token.size(), 1400U);
}

TEST_F(Directory, OnlyUsersWithALocalAccountAreActedAs) {
    ActingThread thread;
    const std::string nested = LogOn(PasswordOf("nested")).m_key;
    EXPECT_EQ(thread.Impersonate(nested, 0), "100/61212");
    EXPECT_TRUE(m_trace.Said({"nested@MORWEN.TEST maps to the local account \"nested\", which does not exist"}));
    RunCommand("sed -i '/alice = nobody/a nested = nobody' $MORWEN_REALM_DIR/krb5.conf; sleep 1.1");
    EXPECT_EQ(thread.Impersonate(nested, 65534), "0") << "the account is looked up once more";
    EXPECT_EQ(thread.Revert(nested), "0");
}

// Each name that a user can ask by, in the order of the table in docs/impersonation.md.
TEST_F(Directory, NamesStandForAccountsThatHaveThem) {
    const std::string noAccount = "which does not exist on this machine";
    const struct {
        const char *m_pszAsked, *m_pszAccount, *m_pszOptions;
        uid_t m_nUser;  // 0: nobody
        std::string m_says;
    } kCases[] = {
        {"mail", "mail", "", 8, ""},
        {"MAIL", "mail", "", 0, "maps to the local account \"MAIL\", " + noAccount},
        {"mail ", "mail", "", 0, "is the account \"mail\""},
        {"two words", "two words", "", 0, "maps to the local account \"two words\", " + noAccount},
        {"mail\\@MORWEN.TEST", "mail", "", 0, "is the account \"mail\""},
        {"mail@MORWEN.TEST", "mail", "-E", 0, "is the account \"mail\""},
        {"mail@MORWEN.TEST", "mail", "-E -C", 8, ""},
        {"odd@elsewhere.test", "sys", "-E", 0, "is the account \"sys\""},
        {"odd@elsewhere.test", "sys", "-E -C", 3, ""},
        {"games", "mallory", "", 0, "is the account \"mallory\""},
        {"games@MORWEN.TEST", "mallory", "-E -C", 0, "maps to the local account \"mallory\", " + noAccount},
        {"daemon", "daemon$", "", 0, "is the account \"daemon$\""},
        {"DAEMON", "daemon$", "", 0, "is the account \"daemon$\""},
        {"daemon$", "daemon$", "", 0, "maps to the local account \"daemon$\", " + noAccount},
        {"alice", "alice", "", 65534, ""},  // by auth_to_local_names
        {"mail", "mail", "--no-request-pac", 0, "without the logon information that others of this realm have"},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(std::string(test.m_pszAsked) + " " + test.m_pszOptions);
        const std::string cache = "FILE:" + RealmPath("asked.cc");
        RunCommand(std::string("echo '") + test.m_pszAccount + "-secret' | kinit " + test.m_pszOptions + " -c " +
                   cache + " '" + test.m_pszAsked + "'");
        UseTickets(cache);
        const std::string key = KeptLogin({}, Information::NotWanted);
        ActingThread thread;
        EXPECT_EQ(thread.Impersonate(key, test.m_nUser), test.m_nUser != 0 ? "0" : "100/61212");
        EXPECT_TRUE(m_trace.Said({test.m_says}));
        EXPECT_EQ(thread.Revert(key), "0");
    }
    const auto require = [](const SSOChar* i_pszOn) {
        const ParasSeq parameters = {u"" SSO_KEY_REQUIRE_LOGON_INFO, SSO_PARAMETER_BOOL, i_pszOn, nullptr};
        EXPECT_EQ(SSOInitProvider(u"SSPI", &parameters), SSO_OK);
    };
    require(u"1");
    EXPECT_EQ(LogOn({}, Information::NotWanted).m_verdict, "1,3/61215");
    ++m_nHalfDone;  // the client's half
    EXPECT_EQ(LogOn(PasswordOf("mail")).m_verdict, kLoggedOn);
    require(u"0");
}

}  // namespace
}  // namespace morwen
