// Logons that must work, and who has logged on.
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "realm/GssPeer.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

class Logon : public PluginTest {};

// The accounts that the realm's configuration gives to its users.
const passwd& AccountOf(const std::string& i_user) {
    return *(i_user == "alice" && getuid() == 0 ? getpwnam("nobody") : getpwuid(getuid()));
}

std::string UserSid(const std::string& i_user) {
    return "S-1-22-1-" + std::to_string(AccountOf(i_user).pw_uid);
}

std::string GroupSids(const std::string& i_user) {
    RunCommand(std::string("id -G ") + AccountOf(i_user).pw_name);
    std::ifstream file(RealmPath("output"));
    std::string sids;
    for (std::string group; file >> group;) {
        sids += "S-1-22-2-" + group + ";";
    }
    return sids;
}

TEST_F(Logon, UsersAreTheirLocalAccounts) {
    const auto logsOn = [](const Client& i_client, const std::string& i_user) {
        const LoginResult login = LogOn(i_client);
        EXPECT_EQ(login.m_verdict, kLoggedOn) << i_client.m_user << " to " << i_client.m_spn;
        EXPECT_EQ(login.m_key, "DUMMY_KEY__CACHING_IS_OFF");
        EXPECT_EQ(login.m_userSid, UserSid(i_user)) << i_client.m_user;
        EXPECT_EQ(login.m_groupSids, GroupSids(i_user)) << i_client.m_user;
    };
    logsOn({}, "alice");
    logsOn({"", "", "morwen/localhost@MORWEN.TEST"}, "alice");
    logsOn({"", "", "fwd/localhost"}, "alice");
    for (const char* pszName : {"MORWEN.TEST\\bob", "morwen.test\\bob", "MORWEN\\bob", "\\bob"}) {
        logsOn({pszName, "bob-secret"}, "bob");
    }
    EXPECT_FALSE(m_trace.Contains("bob-secret"));
}

TEST_F(Logon, OnlyLogonInformationNeedsALocalAccount) {
    Kadmin("addprinc -pw stranger-secret stranger");
    const Client stranger{"MORWEN\\stranger", "stranger-secret"};
    EXPECT_EQ(LogOn(stranger, Information::NotWanted).m_verdict, kLoggedOn);
    EXPECT_EQ(AcceptLogin(HalfLogin(stranger).m_token).m_verdict, "100/61212");
    EXPECT_TRUE(m_trace.Said({"stranger@MORWEN.TEST maps to the local account \"stranger\", which does not exist"}));
}

TEST_F(Logon, DelegatesWithOneRequestForAsLongAsTheTicketIsTheSame) {
    AddService("+ok_as_delegate fwd-too/localhost", "service.keytab");
    const std::string cache = Kinit("alice", "handed.cc");
    UseTickets(cache);
    const struct {
        const char* m_pszBefore;
        Client m_client;
        std::string m_delegating;
        size_t m_nRequests;  // for forwarded tickets
    } kCases[] = {
        {"true", {"", "", "fwd/localhost"}, "alice", 1},
        {"kvno -c $MORWEN_REALM_DIR/handed.cc morwen/localhost", {"", "", "fwd/localhost"}, "alice", 0},
        {"true", {"", "", "fwd-too/localhost"}, "alice", 1},
        {"echo alice-secret | kinit -c $MORWEN_REALM_DIR/handed.cc alice", {"", "", "fwd/localhost"}, "alice", 1},
        {"echo bob-secret | kinit -c $MORWEN_REALM_DIR/handed.cc bob", {"", "", "fwd/localhost"}, "bob", 1},
        {"echo bob-secret | kinit -F -c $MORWEN_REALM_DIR/handed.cc bob", {"", "", "fwd/localhost"}, "", 0},
        {"true", {"MORWEN\\bob", "bob-secret", "fwd/localhost"}, "bob", 4},  // each with a logon of its own
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(std::string(test.m_pszBefore) + " " + test.m_client.m_spn);
        RunCommand(std::string(test.m_pszBefore) + "; kvno -c $MORWEN_REALM_DIR/handed.cc " + test.m_client.m_spn);
        const auto requests = [] {
            RunCommand("grep TGS_REQ $MORWEN_REALM_DIR/kdc.log | grep -c 'for krbtgt/MORWEN' || true");
            size_t nRequests = 0;
            std::ifstream(RealmPath("output")) >> nRequests;
            return nRequests;
        };
        const size_t nBefore = requests();
        std::array<LoginResult, 4> started;
        {
            std::array<std::jthread, 4> threads;
            for (size_t i = 0; i < threads.size(); ++i) {
                threads[i] = std::jthread([&, i] { started[i] = StartLogin(test.m_client); });
            }
        }
        EXPECT_EQ(requests() - nBefore, test.m_nRequests);
        const std::string user = test.m_delegating.empty() ? "bob" : test.m_delegating;
        for (const LoginResult& mine : started) {
            GssPeer acceptor;
            EXPECT_EQ(ContinueLogin(mine.m_key, acceptor.Accept(mine.m_token)).m_verdict, "0");
            EXPECT_EQ(acceptor.Outcome(),
                      user + "@MORWEN.TEST to " + test.m_client.m_spn + "@MORWEN.TEST" +
                          (test.m_delegating.empty() ? "" : " delegating " + user + "@MORWEN.TEST"));
        }
    }
}

// Tickets and keys are held in memory, and must not be held longer than the files behind them.
TEST_F(Logon, ChangedStoresAreNoticed) {
    UseTickets(Kinit("alice", "changing.cc"));
    UseKeytab(AddService("changing/localhost", "changing.keytab"));
    const Client client{"", "", "changing/localhost"};
    EXPECT_EQ(LogOn(client).m_userSid, UserSid("alice"));
    Kinit("bob", "changing.cc");
    EXPECT_EQ(LogOn(client).m_userSid, UserSid("bob"));
    Kadmin("ktadd -k " + RealmPath("changing.keytab") + " changing/localhost");  // makes a new key
    Kinit("alice", "changing.cc");                                               // drops the old service ticket
    EXPECT_EQ(LogOn(client).m_userSid, UserSid("alice"));
}

// The KDC gives a ticket for a few seconds only; no logon may meet its end.
TEST_F(Logon, TicketsAreReplacedBeforeTheyEnd) {
    UseKeytab(AddService("brief/localhost", "brief.keytab"));
    Kadmin("modprinc -maxlife '4 seconds' brief/localhost");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(6);
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(LogOn({"", "", "brief/localhost"}).m_verdict, kLoggedOn);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// In the memory of the heap, in use or not; a sanitizer's heap is elsewhere.
size_t CopiesInHeap(std::string_view i_bytes) {
    std::ifstream maps("/proc/self/maps");
    uintptr_t nBegin = 0, nEnd = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.ends_with("[heap]")) {
            char cDash = 0;
            std::istringstream(line) >> std::hex >> nBegin >> cDash >> nEnd;
        }
    }
    const std::string_view heap(reinterpret_cast<const char*>(nBegin), nEnd - nBegin);
    size_t nCopies = 0;
    for (size_t n = heap.find(i_bytes); n != heap.npos; n = heap.find(i_bytes, n + 1)) {
        ++nCopies;
    }
    return nCopies;
}

TEST_F(Logon, LeavesNoKeyOfTheServiceBehind) {
    char aKey[16];  // the end of the last entry's, behind which stands a version of four bytes
    std::ifstream keytab;
    keytab.rdbuf()->pubsetbuf(nullptr, 0);
    keytab.open(RealmPath("service.keytab"), std::ios::binary);
    keytab.seekg(-20, std::ios::end).read(aKey, sizeof(aKey));
    const std::string_view key(aKey, sizeof(aKey));
    EXPECT_EQ(LogOn().m_verdict, kLoggedOn);
    const size_t nHeld = CopiesInHeap(key);
    EXPECT_EQ(SSOTermPackage(), SSO_OK);
    EXPECT_EQ(CopiesInHeap(key), 0U);
    EXPECT_EQ(SSOInitPackage(), SSO_OK);
    SetCaching(u"0");
    if (nHeld == 0) {
        GTEST_SKIP() << "the heap is a sanitizer's";
    }
}

}  // namespace
}  // namespace morwen
