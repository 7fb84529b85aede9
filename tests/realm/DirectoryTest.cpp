// Users of a directory: who they are comes from their tickets, as a real directory server makes them.
#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "realm/DirectoryTest.h"
#include "realm/GssPeer.h"

namespace morwen {
namespace {

class Directory : public DirectoryTest {};

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

// Constrained delegation: with the user's ticket as evidence, where the directory lets the service's account.
TEST_F(Directory, ServicesGoOnAsUsersWhoHaveDelegatedNothing) {
    const struct {
        const char *m_pszUser, *m_pszOptions, *m_pszService, *m_pszKeytab, *m_pszBackEnd, *m_pszSays;
        uid_t m_nUser = 65534;
        const char* m_pszClientKeytab = "none.keytab";
    } kCases[] = {
        {"alice", "", "front/localhost", "front.keytab", "morwen/localhost", ""},
        {"mail", "", "front/localhost", "front.keytab", "morwen/localhost", "", 8},
        {"alice", "", "front/localhost", "front.keytab", "front/localhost", ""},
        {"alice", "", "fwd/localhost", "front.keytab", "fwd/localhost", ""},  // delegated tickets come first
        {"alice", "", "front/localhost", "front.keytab", "fwd/localhost", "the KDC does not let front@MORWEN.TEST log"},
        {"alice", "", "front/localhost", "front.keytab", "none/localhost", "Server not found in Kerberos database"},
        {"alice", "-F", "front/localhost", "front.keytab", "morwen/localhost", "whose own ticket may not be forwarded"},
        {"news", "", "front/localhost", "front.keytab", "morwen/localhost", "whose own ticket may not be forwarded", 9},
        {"alice", "", "morwen/localhost", "front.keytab", "morwen/localhost",
         "is not for this account, but for another"},
        {"alice", "", "morwen/localhost", "service.keytab", "morwen/localhost", "has no account with a ticket"},
        {"alice", "", "front/localhost", "front.keytab", "morwen/localhost", "service.keytab has no account", 65534,
         "service.keytab"},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(std::string(test.m_pszUser) + test.m_pszOptions + " " + test.m_pszKeytab + " " +
                     test.m_pszBackEnd);
        const LoginResult listed = Listed(test.m_pszUser);
        UseKeytab("FILE:" + RealmPath(test.m_pszKeytab));
        setenv("KRB5_CLIENT_KTNAME", RealmPath(test.m_pszClientKeytab).c_str(), 1);
        UseTickets(Kinit(test.m_pszUser, "asked.cc", test.m_pszOptions));
        const std::string key = KeptLogin({"", "", test.m_pszService}, Information::NotWanted);
        UseTickets(Kinit("bob", "service.cc"));  // nobody may be taken for him
        ActingThread thread;
        EXPECT_EQ(thread.Impersonate(key, test.m_nUser), "0");
        const bool bAllowed = *test.m_pszSays == '\0';
        for (int i = 0; i < 2; ++i) {
            const LoginResult hop = LogOn({"", "", test.m_pszBackEnd});
            EXPECT_EQ(hop.m_verdict, bAllowed ? kLoggedOn : kUnusable);
            EXPECT_EQ(hop.m_userSid, bAllowed ? listed.m_userSid : "");
            EXPECT_EQ(hop.m_groupSids, bAllowed ? listed.m_groupSids : "");
        }
        EXPECT_TRUE(m_trace.Said({test.m_pszSays}));
        EXPECT_EQ(thread.Revert(key), "0");
        RunCommand("export KRB5CCNAME=FILE:$MORWEN_REALM_DIR/asked.cc; " + std::string(bAllowed ? "" : "! ") +
                   std::filesystem::read_symlink("/proc/self/exe").replace_filename("morwen-doctor").string() +
                   " server --spn " + test.m_pszService + " --second-hop " + test.m_pszBackEnd);
    }
    unsetenv("KRB5_CLIENT_KTNAME");
}

// From any thread, and kept identities: one request for each user and service, and nobody is taken for another.
TEST_F(Directory, SecondHopsMixNoUsers) {
    UseKeytab("FILE:" + RealmPath("front.keytab"));
    const std::pair<std::string, uid_t> kWho[] = {{"alice", 65534}, {"mail", 8}};
    std::string keys[2], captured[2], sids[2];
    for (size_t i = 0; i < 2; ++i) {
        UseTickets(Kinit(kWho[i].first, "asked.cc"));
        sids[i] = Listed(kWho[i].first).m_userSid;
        keys[i] = KeptLogin({"", "", "front/localhost"});
        ActingThread thread;
        EXPECT_EQ(thread.Impersonate(keys[i], kWho[i].second), "0");
        captured[i] = CaptureThread();
        EXPECT_EQ(thread.Revert(keys[i]), "0");
    }
    {
        std::array<std::jthread, 8> threads;
        for (size_t nThread = 0; nThread < threads.size(); ++nThread) {
            threads[nThread] = std::jthread([&, nThread] {
                ActingThread thread;
                for (size_t i = nThread; i < nThread + 8; ++i) {
                    const std::string& key = nThread < 4 ? keys[i % 2] : captured[i % 2];
                    EXPECT_EQ(thread.Impersonate(key, kWho[i % 2].second), "0");
                    EXPECT_EQ(LogOn().m_userSid, sids[i % 2]);
                }
                EXPECT_EQ(thread.Revert(keys[0]), "0");
            });
        }
    }
    EXPECT_EQ(m_trace.Count("The KDC lets"), 2);
    EXPECT_EQ(SSOReleaseSecurityContext(Wide(keys[1]).c_str()), SSO_OK);
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(captured[1], 8), "0");
    const LoginResult hop = StartLogin();
    EXPECT_EQ(thread.Revert(captured[1]), "0");
    GssPeer acceptor;
    EXPECT_EQ(ContinueLogin(hop.m_key, acceptor.Accept(hop.m_token)).m_verdict, "0");
    EXPECT_EQ(acceptor.Outcome(), "mail@MORWEN.TEST to morwen/localhost@MORWEN.TEST");
}

}  // namespace
}  // namespace morwen
