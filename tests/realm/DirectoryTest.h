// The fixture of the tests in the realm of a directory, and what the directory says of its users.
#pragma once

#include "realm/KeptContextTest.h"

namespace morwen {

class DirectoryTest : public KeptContextTest {
protected:
    static void SetUpTestSuite() {}  // this realm has users of its own
};

// What the directory itself says of a user: the user, the group of all users, and the groups of its domain, also those
// that other groups bring; and what the KDC adds: that it is the one who says so.
inline LoginResult Listed(const std::string& i_user) {
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

}  // namespace morwen
