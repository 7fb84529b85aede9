// Threads that act as the users who have logged on.
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <latch>
#include <thread>

#include "realm/GssPeer.h"
#include "realm/KeptContextTest.h"

// The C library guards its time zone with a lock that the sanitizer does not see.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name under which it asks.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char* __tsan_default_suppressions() {
    return "race:tzset_internal";
}

namespace morwen {
namespace {

class Impersonation : public KeptContextTest {};
class ImpersonatedGroups : public KeptContextTest {};
class IdentityStress : public KeptContextTest {};
class UnprivilegedService : public KeptContextTest {};
class DISABLED_NobodyAsService : public KeptContextTest {};

std::string Content(const std::string& i_path) {
    std::ifstream file(i_path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Of a file that the thread makes.
uid_t OwnerOfNewFile() {
    const std::string path = RealmPath("made" + std::to_string(gettid()));
    EXPECT_TRUE(std::ofstream(path).is_open());
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status) + unlink(path.c_str()), 0);
    return status.st_uid;
}

TEST_F(Impersonation, DecidesOverFilesOnThisThreadAlone) {
    const std::string alice = KeptLogin();
    const ActingThread untouched;
    std::latch acting(1);
    std::jthread other([&] {
        acting.wait();
        untouched.ExpectUnchanged();
        EXPECT_EQ(OwnerOfNewFile(), 0U);
    });
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(alice, 65534), "0");
    acting.count_down();
    EXPECT_EQ(OwnerOfNewFile(), 65534U);
    EXPECT_TRUE(Content(RealmPath("service.keytab")).empty());  // root's own
    EXPECT_EQ(chown(RealmPath("").c_str(), 1, 1), -1);
    other.join();
    std::string captured;
    std::thread([&] {  // begins as its maker, and has nothing of its own to go back to
        captured = CaptureThread();
        EXPECT_EQ(LogOn({}).m_verdict.substr(0, 4), "100/");  // neither with the service's tickets nor its keys
        EXPECT_EQ(SSORevert(Wide(alice).c_str()), SSO_OK);
        untouched.ExpectUnchanged();
    })
        .join();
    EXPECT_EQ(thread.Revert(alice), "0");
    EXPECT_EQ(thread.Impersonate(captured, 65534), "0");
    EXPECT_NE(LogOn({}).m_verdict, kLoggedOn);  // with the service's tickets
    EXPECT_EQ(thread.Revert(captured), "0");
    EXPECT_EQ(OwnerOfNewFile(), 0U);
    EXPECT_FALSE(Content(RealmPath("service.keytab")).empty());
}

TEST_F(Impersonation, RefusedLeavesTheThreadWhoItWas) {
    Kadmin("addprinc -pw root-secret root");
    Kadmin("addprinc -pw nowhere-secret nowhere");
    RunCommand("kadmin.local -r OTHER.TEST addprinc -pw alice-secret alice");
    const auto ofOtherRealm = [](const std::string& i_user) {
        return KeptLogin({"OTHER.TEST\\" + i_user, i_user + "-secret", "morwen/localhost@MORWEN.TEST"},
                         Information::NotWanted);
    };
    const std::string alice = KeptLogin();
    const std::tuple<std::string, const char*, const char*> kCases[] = {
        {ofOtherRealm("alice"), "100/61212",
         "mapping alice@OTHER.TEST to a local account by the rules of the default realm, MORWEN.TEST: No translation"},
        {ofOtherRealm("dave"), "100/61212",
         "mapping dave@OTHER.TEST to a local account by the rules of the default realm, MORWEN.TEST: No translation"},
        {KeptLogin(PasswordOf("root")), "100/61212", "the user maps to root, whom no logon may act as"},
        {KeptLogin(PasswordOf("nowhere"), Information::NotWanted), "100/61212",
         "nowhere@MORWEN.TEST maps to the local account \"nowhere\", which does not exist"},
        {"no such key", "100/61217", "token for no such key not found or expired"},
    };
    ActingThread thread;
    for (const bool bActing : {false, true}) {
        EXPECT_EQ(bActing ? thread.Impersonate(alice, 65534) : "0", "0");
        for (const auto& [key, pszVerdict, pszReason] : kCases) {
            EXPECT_EQ(thread.Impersonate(key, 0), pszVerdict) << pszReason;
            EXPECT_TRUE(m_trace.Said({pszReason}));
        }
    }
    EXPECT_EQ(thread.Revert(alice), "0");
    const std::string carol = ofOtherRealm("carol");  // whom a rule names
    EXPECT_EQ(thread.Impersonate(carol, 65534), "0");
    EXPECT_EQ(SSOReleaseSecurityContext(Wide(carol).c_str()), SSO_OK);
    EXPECT_EQ(thread.Revert(carol), "100/61211");  // and still acts as her
    EXPECT_EQ(thread.Revert(alice), "0");
}

TEST_F(Impersonation, LetsOtherLoginsGoOn) {
    const std::string alice = KeptLogin();
    const LoginResult during = HalfLogin();
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(alice, 65534), "0");
    EXPECT_EQ(CloseLogin(AcceptLogin(during.m_token).m_key).m_userSid, kAliceSid);
    EXPECT_EQ(AcceptLogin(during.m_token).m_verdict, "3/61215");
    UseKeytab(AddService("later/localhost", "later.keytab"));  // not in memory yet, and nobody else's to read
    Client sys = PasswordOf("sys");
    sys.m_spn = "later/localhost";
    const std::string key = KeptLogin(sys);
    thread.ExpectUnchanged();
    EXPECT_EQ(thread.Impersonate(key, 3), "0");
    EXPECT_EQ(thread.Revert(alice), "0");
    UseKeytab("FILE:" + RealmPath("service.keytab"));
    EXPECT_EQ(AcceptLogin(during.m_token).m_verdict, "3/61215");
}

TEST_F(Impersonation, LogsOnElsewhereAsTheUserOrNotAtAll) {
    const std::string delegated = KeptLogin({"", "", "fwd/localhost"});
    const std::string other = KeptLogin();
    UseTickets(Kinit("bob", "service.cc"));  // the service's own
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(delegated, 65534), "0");
    const LoginResult hop = StartLogin();
    const std::string captured = CaptureThread();
    EXPECT_EQ(LogOn().m_userSid, kAliceSid);
    EXPECT_EQ(thread.Revert(delegated), "0");
    const size_t nLogged = Content(RealmPath("kdc.log")).size();
    EXPECT_EQ(thread.Impersonate(delegated, 65534), "0");
    EXPECT_EQ(thread.Impersonate(other, 65534), "0");  // the same account without tickets
    EXPECT_EQ(StartLogin().m_verdict, "100/42254");
    EXPECT_TRUE(m_trace.Said({"the user has delegated no tickets to this service, and the KDC does not let"}));
    EXPECT_EQ(thread.Revert(other), "0");
    EXPECT_EQ(Content(RealmPath("kdc.log")).find("bob@", nLogged), std::string::npos);
    GssPeer acceptor;
    EXPECT_EQ(ContinueLogin(hop.m_key, acceptor.Accept(hop.m_token)).m_verdict, "0");
    EXPECT_EQ(acceptor.Outcome(), "alice@MORWEN.TEST to morwen/localhost@MORWEN.TEST");
    const std::string service = CaptureThread();
    EXPECT_EQ(SSOReleaseSecurityContext(Wide(delegated).c_str()), SSO_OK);
    std::jthread([&] {
        ActingThread there;
        EXPECT_EQ(there.Impersonate(captured, 65534), "0");
        EXPECT_EQ(LogOn().m_userSid, kAliceSid);
        EXPECT_EQ(there.Impersonate(service, 0), "0");  // the service as itself
        EXPECT_EQ(LogOn().m_userSid, "S-1-22-1-0");
        EXPECT_EQ(there.Revert(captured), "0");
    }).join();
}

// A host that has lowered its thread, and keeps the right to change who it is: neither its real nor its saved id is the
// one to go back to.
TEST_F(Impersonation, GoesBackToAnEffectiveIdOfItsOwn) {
    const std::string alice = KeptLogin();
    const Bytes token = HalfLogin().m_token;
    std::thread([&] {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct aData[2] = {};
        ASSERT_EQ(syscall(SYS_capget, &header, aData), 0);
        ASSERT_EQ(syscall(SYS_setresuid, -1, 4711, -1), 0);
        ASSERT_EQ(syscall(SYS_capset, &header, aData), 0);
        ActingThread thread;
        EXPECT_EQ(thread.Impersonate(alice, 65534), "0");
        EXPECT_EQ(AcceptLogin(token).m_verdict, "1");
        ++m_nHalfDone;
        thread.ExpectUnchanged();
        EXPECT_EQ(thread.Revert(alice), "0");
    }).join();
}

// No account that every machine has is in groups, so this process sees a table of groups of its own.
TEST_F(ImpersonatedGroups, AreThoseOfTheAccount) {
    const std::string table = RealmPath("group");
    std::string groups = Content("/etc/group") + "morwen-one:x:64101:news\nmorwen-two:x:64102:bin,news\n";
    std::string ofMail = "8 ";
    for (int nGroup = 64200; nGroup < 64270; ++nGroup) {
        groups += "morwen-" + std::to_string(nGroup) + ":x:" + std::to_string(nGroup) + ":mail\n";
        ofMail += std::to_string(nGroup) + " ";
    }
    WriteFile("group", groups);
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(table.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "a table of groups for this process alone needs root with the right to mount";
    }
    ActingThread thread;
    const std::string news = KeptLogin(PasswordOf("news"));
    EXPECT_EQ(thread.Impersonate(news, 9, "9 64101 64102 "), "0");
    EXPECT_EQ(thread.Impersonate(KeptLogin(PasswordOf("bin")), 2, "2 64102 "), "0");
    EXPECT_EQ(thread.Impersonate(KeptLogin(PasswordOf("mail")), 8, ofMail), "0");
    EXPECT_EQ(thread.Revert(news), "0");
    EXPECT_EQ(umount("/etc/group"), 0);
}

// Each user's context is known by the user's name, and is replaced by fresh ones all the time.
TEST_F(IdentityStress, ThreadsAreWhomTheyActAsAndTheServiceAfterwards) {
    const auto logOnAs = [](const std::string& i_user) {
        const std::u16string key = Wide(KeptLogin(PasswordOf(i_user)));
        EXPECT_EQ(SSOAssociateSecurityContext(key.c_str(), Wide(i_user).c_str()), SSO_OK);
    };
    for (const auto& [pszUser, nUser] : kUsers) {
        logOnAs(pszUser);
    }
    const auto keepFor = [](const SSOChar* i_pszSeconds) {
        const ParasSeq parameters = {u"" SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, i_pszSeconds, nullptr};
        EXPECT_EQ(SSOInitProvider(u"SSPI", &parameters), SSO_OK);
    };
    std::vector<std::jthread> threads;
    for (size_t nThread = 0; nThread < std::size(kUsers); ++nThread) {
        threads.emplace_back([&, nThread] {
            ActingThread thread;
            size_t nActed = 0;
            for (size_t i = 0; i < 1500; ++i) {
                const auto& [pszUser, nUser] = kUsers[(nThread + i) % std::size(kUsers)];
                const std::string verdict = thread.Impersonate(pszUser, nUser);
                const bool bActs = verdict == "0";
                EXPECT_TRUE(bActs || verdict == "100/61217") << verdict;  // just then everything had expired
                nActed += bActs ? 1 : 0;
                if (i % 50 == 25) {
                    keepFor(u"-1");
                    thread.ExpectUnchanged();
                    keepFor(u"0");
                }
                if (i % 50 == 0) {
                    EXPECT_EQ(OwnerOfNewFile(), bActs ? nUser : 0);
                    logOnAs(kUsers[i / 50 % std::size(kUsers)].first);
                    EXPECT_EQ(SSOReleaseSecurityContext(Wide(KeptLogin(PasswordOf(pszUser))).c_str()), SSO_OK);
                    thread.ExpectUnchanged();
                }
                EXPECT_EQ(thread.Revert(kUsers[i % std::size(kUsers)].first), "0");
            }
            EXPECT_GT(nActed, 1000U);
        });
    }
}

// In a process that is nobody, with keys and tickets of its own.
TEST_F(UnprivilegedService, ActsAsWhomItMay) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    for (const std::string what :
         {"folder=with; caps='--inh-caps -all,+setuid,+setgid --ambient-caps -all,+setuid,+setgid'",
          "folder=capped; first='setpriv --inh-caps -all,+setuid,+setgid'; "
          "caps='--bounding-set -setuid,-setgid --ambient-caps -all,+setuid,+setgid'",
          "folder=without; caps='--inh-caps -all'"}) {
        std::string command = what;
        command += "; program=";
        command += program;
        command +=
            "; cd $MORWEN_REALM_DIR; log=$PWD/output; mkdir $folder; cp alice.cc service.keytab $folder; "
            "chown -R nobody:nogroup $folder; cd $folder; "
            "export MORWEN_AS_NOBODY=1 MORWEN_REALM_DIR=$PWD KRB5RCACHEDIR=$PWD KRB5_KTNAME=$PWD/service.keytab "
            "KRB5CCNAME=$PWD/alice.cc; $first setpriv --reuid nobody --regid nogroup --clear-groups $caps $program "
            "--gtest_also_run_disabled_tests --gtest_filter=*NobodyAsService.* && grep -q 'PASSED  . 1 test' $log";
        RunCommand(command);
    }
}

TEST_F(DISABLED_NobodyAsService, ActsAsWhomItMay) {
    const bool bMay = RealmPath("").ends_with("/with/");
    const bool bCapped = RealmPath("").ends_with("/capped/");  // and what it gave up it could not take back
    ASSERT_EQ(CurrentThreadState()["CapEff"], bMay || bCapped ? "\t00000000000000c0" : "\t0000000000000000");
    const std::tuple<const char*, uid_t, const char*> kCases[] = {{"alice", 65534, bCapped ? "100/61212" : "0"},
                                                                  {"daemon", 1, bMay ? "0" : "100/61212"},
                                                                  {"bob", 0, "100/61212"}};
    for (const auto& [pszUser, nUser, pszVerdict] : kCases) {
        const std::string key = KeptLogin(PasswordOf(pszUser));
        ActingThread thread;
        EXPECT_EQ(thread.Impersonate(key, nUser), pszVerdict) << pszUser;
        EXPECT_EQ(LogOn(PasswordOf(pszUser)).m_verdict, kLoggedOn);
        thread.ExpectUnchanged();
        // A program that the user's thread starts makes itself root no more than the user does.
        // NOLINTNEXTLINE(cert-env33-c): a shell's words are all that is needed.
        EXPECT_EQ(system("setpriv --reuid 0 true 2>> refused") == 0, bCapped || (bMay && nUser == 0));
        EXPECT_EQ(thread.Revert(key), "0");
    }
    EXPECT_TRUE(m_trace.Said({bMay ? "" : "the service needs CAP_SETUID and CAP_SETGID"}));
}

}  // namespace
}  // namespace morwen
