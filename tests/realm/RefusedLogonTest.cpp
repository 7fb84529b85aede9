// Logons that must fail, with the right code and a trace that names the reason.
#include <chrono>
#include <cstring>
#include <thread>

#include "bench/ForgedService.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

class RefusedLogon : public PluginTest {};

TEST_F(RefusedLogon, ByTheNameOrThePassword) {
    Kadmin("addprinc -pw lapsed-secret -pwexpire 2001-01-01 lapsed");
    Kadmin("addprinc -pw locked-secret -allow_tix locked");
    const auto refused = [this](const Client& i_client, const char* i_pszVerdict, const char* i_pszReason) {
        EXPECT_EQ(StartLogin(i_client).m_verdict, i_pszVerdict) << i_client.m_user << " to " << i_client.m_spn;
        EXPECT_FALSE(!i_client.m_password.empty() && m_trace.Contains(i_client.m_password));
        EXPECT_TRUE(std::strstr(HarrowLogReason(), i_pszReason)) << HarrowLogReason();
    };
    refused({"MORWEN\\bob", "not-his"}, "3/50054", "bob@MORWEN.TEST with a password: Preauthentication failed");
    refused({"MORWEN\\mallory", "secret"}, "3/50054", "mallory@MORWEN.TEST' not found in Kerberos database");
    refused({"MORWEN\\lapsed", "lapsed-secret"}, "3/50054", "lapsed@MORWEN.TEST with a password: Password has expired");
    refused({"MORWEN\\locked", "locked-secret"}, "3/50054", "credentials have been revoked");
    refused({"MORWEN\\bob@MORWEN.TEST", "bob-secret"}, "3/50054", "bob\\@MORWEN.TEST@MORWEN.TEST' not found");
    refused({"MORWEN\\bob", "bob-secret", "no/localhost"}, "100/42254", "no/localhost for bob@MORWEN.TEST with MEMORY");
    refused({"", "", "no/localhost"}, "100/42254", "no/localhost for alice@MORWEN.TEST with FILE");
    refused({"", "", "a/b@c@d"}, "100/42254", "a/b@c@d names no service");
    refused({"DEAD.TEST\\dave", "dave-secret"}, "100/42254", "No KDC of the realm DEAD.TEST has answered");
    refused({"NOWHERE.TEST\\dave", "dave-secret"}, "100/42254", "Cannot find KDC for realm \"NOWHERE.TEST\"");
}

TEST_F(RefusedLogon, ByTheEndOfTheTicket) {
    const std::string name = Kinit("alice", "short.cc", "-l 2s");
    const auto end = std::chrono::system_clock::now() + std::chrono::seconds(2);
    UseTickets(name);
    const LoginResult inTime = HalfLogin();
    std::this_thread::sleep_until(end);
    EXPECT_EQ(AcceptLogin(inTime.m_token).m_verdict, "100/42254");
    EXPECT_TRUE(m_trace.Said({"of alice@MORWEN.TEST to morwen/localhost@MORWEN.TEST with", ": the ticket expired at"}));
    EXPECT_EQ(StartLogin().m_verdict, "100/42254");
    EXPECT_TRUE(m_trace.Said({"the ticket of alice@MORWEN.TEST in " + name + " expired at"}));
}

// Not the default cache of somebody else, nor a link, unless it is named.
TEST_F(RefusedLogon, ByWhoHasMadeTheTicketCache) {
    const std::string name = Kinit("bob", "default.cc");
    const auto logsOn = [&](const std::string& i_change, const std::string& i_reason) {
        RunCommand("cd $MORWEN_REALM_DIR; " + i_change);
        UseTickets(name);
        EXPECT_EQ(LogOn().m_verdict, kLoggedOn) << i_change;
        unsetenv("KRB5CCNAME");
        EXPECT_EQ(LogOn().m_verdict, i_reason.empty() ? kLoggedOn : "100/42254") << i_change;
        EXPECT_TRUE(m_trace.Said({i_reason}));
    };
    // It is looked at once a second.
    logsOn("sed -i \"/.libdefaults/a default_ccache_name = FILE:$PWD/default.cc\" krb5.conf; sleep 1.1", "");
    m_trace.m_onSaid = [](const std::string& i_said) {  // came and went between two looks, for all that can be told
        if (getenv("KRB5CCNAME") == nullptr && i_said.find("Got a ticket") != std::string::npos) {
            std::filesystem::rename(RealmPath("default.cc"), RealmPath("there.cc"));
        }
    };
    logsOn("touch default.cc", "default.cc is not used, because it has gone while it was read");
    m_trace.m_onSaid = [](const std::string&) {};
    RunCommand("cd $MORWEN_REALM_DIR; mv there.cc default.cc");
    logsOn("mv default.cc there.cc; ln -s there.cc default.cc", "default.cc is not used, because it is a link of the");
    if (getuid() == 0) {
        logsOn("mv there.cc default.cc; chown nobody default.cc",
               "a file of the account with the number 65534, not of 0");
        logsOn(
            "chown root default.cc; mkdir -m 700 dir; cp default.cc dir/tkt; echo tkt >dir/primary; chown nobody dir; "
            "sed -i \"/^ *default_ccache_name/d; /.libdefaults/a default_ccache_name = DIR:$PWD/dir\" krb5.conf; sleep "
            "1.1",
            "is a folder of the account with the number 65534, not of 0");
        logsOn("chown root dir", "");
    }
}

TEST_F(RefusedLogon, ByTheKeytab) {
    const std::string rekeyed = AddService("rekeyed/localhost", "rekeyed.keytab");
    Kadmin("cpw -randkey rekeyed/localhost");
    const std::string twin = AddService("twin/localhost", "twin.keytab");
    Kadmin("delprinc -force twin/localhost");
    Kadmin("addprinc -randkey twin/localhost");  // the same version, another key
    WriteFile("empty.keytab", "\x05\x02");
    WriteFile("odd.keytab", "no keytab");
    const auto refused = [this](const char* i_pszSpn, const std::string& i_keytab, const char* i_pszVerdict,
                                const std::string& i_reason) {
        const LoginResult started = HalfLogin({"", "", i_pszSpn});
        UseKeytab(i_keytab);
        EXPECT_STREQ(HarrowLogReason(), "");
        EXPECT_EQ(AcceptLogin(started.m_token).m_verdict, i_pszVerdict) << i_keytab;
        EXPECT_TRUE(std::strstr(HarrowLogReason(), i_reason.c_str())) << HarrowLogReason();
    };
    refused("morwen/localhost", "FILE:" + RealmPath("none.keytab"), "100/61215", "none.keytab cannot be read");
    refused("morwen/localhost", "FILE:" + RealmPath("empty.keytab"), "100/61215", "empty.keytab holds no key");
    refused("morwen/localhost", "FILE:" + RealmPath("odd.keytab"), "100/61215", "odd.keytab cannot be read");
    refused("morwen/localhost", "ODD:keys", "100/61215", "ODD:keys cannot be read");
    refused("morwen/localhost", twin, "100/42254", "to morwen/localhost@MORWEN.TEST with keytab " + twin);
    refused("twin/localhost", twin, "100/42254", "the keytab's key for the service does not open the ticket");
    refused("rekeyed/localhost", rekeyed, "100/42254", "the ticket is for key version 2, the keytab has 1");
}

TEST_F(RefusedLogon, ByAnOldCipher) {
    Kadmin("addprinc -randkey -e arcfour-hmac:normal old/localhost");
    Kadmin("ktadd -norandkey -k " + RealmPath("old.keytab") + " old/localhost");
    UseKeytab("FILE:" + RealmPath("old.keytab"));
    const Client old = {"", "", "old/localhost"};
    EXPECT_EQ(AcceptLogin(HalfLogin(old).m_token).m_verdict, "100/42254");
    EXPECT_TRUE(m_trace.Said({"to old/localhost@MORWEN.TEST with keytab", "by ticket (arcfour-hmac) or session key"}));
    // It is looked at once a second.
    RunCommand("cd $MORWEN_REALM_DIR; sed -i '/.libdefaults/a allow_rc4 = true' krb5.conf; sleep 1.1");
    EXPECT_EQ(LogOn(old).m_verdict, kLoggedOn);
}

// Whether or not the host wants to know who it is.
TEST_F(RefusedLogon, ByAnonymity) {
    UseTickets("FILE:" + RealmPath("anonymous.cc"));
    const std::tuple<const char*, krb5_flags, const char*> kCases[] = {
        {"alice", TKT_FLG_PRE_AUTH, "1"},
        {"alice", TKT_FLG_PRE_AUTH | TKT_FLG_ANONYMOUS, "3/61215"},
        {"WELLKNOWN/ANONYMOUS", TKT_FLG_PRE_AUTH, "3/61215"},
    };
    for (const auto& [pszClient, nFlags, pszVerdict] : kCases) {
        krb5_context context = nullptr;
        krb5_ccache cache = nullptr;
        krb5_principal client = nullptr;
        ASSERT_EQ(krb5_init_context(&context), 0);
        ASSERT_EQ(krb5_parse_name(context, pszClient, &client) + krb5_cc_default(context, &cache), 0);
        ASSERT_EQ(krb5_cc_initialize(context, cache, client), 0);
        krb5_free_principal(context, client);
        krb5_cc_close(context, cache);
        krb5_free_context(context);
        const std::string service = "s" + std::to_string(m_nHalfDone) + "/localhost";
        bench::ForgeService(service + "@MORWEN.TEST", ENCTYPE_AES256_CTS_HMAC_SHA1_96, 0, nFlags);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));  // so that the keytab is looked at again
        const Bytes token = HalfLogin({"", "", service}).m_token;
        const LoginResult accepted = AcceptLogin(token, {}, Information::NotWanted);
        EXPECT_EQ(accepted.m_verdict, pszVerdict) << pszClient;
        EXPECT_EQ(accepted.m_key.empty(), m_trace.Contains("anonymous tickets are not accepted")) << pszClient;
        m_nHalfDone += accepted.m_key.empty() ? 0U : 1U;
    }
}

TEST_F(RefusedLogon, ByASilentKdcInBoundedTime) {
    AddService("slow/localhost", "slow.keytab");
    LogOn();  // leaves a ticket for the service
    RunCommand("kill -STOP $(cat $MORWEN_REALM_DIR/kdc.pid)");
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(StartLogin({"", "", "slow/localhost"}).m_verdict, "100/42254");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(15));
    EXPECT_TRUE(m_trace.Said({"No KDC of the realm MORWEN.TEST has answered"}));
    EXPECT_EQ(LogOn().m_verdict, kLoggedOn);  // with a ticket that is there, no KDC is needed
    RunCommand("kill -CONT $(cat $MORWEN_REALM_DIR/kdc.pid)");
    EXPECT_EQ(LogOn({"MORWEN\\bob", "bob-secret"}).m_verdict, kLoggedOn);
}

}  // namespace
}  // namespace morwen
