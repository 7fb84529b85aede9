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

}  // namespace
}  // namespace morwen
