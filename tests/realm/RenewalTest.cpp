// The renewal of kept contexts, with a clock that is moved by hand; the core's own, because the library's is hidden.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

#include "handlers/StaticToken.h"
#include "platform/Platform.h"
#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/delegation/LogonEvidence.h"
#include "platform/linux/delegation/ServiceLogon.h"
#include "platform/linux/keys/InitiatorTickets.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "realm/DirectoryTest.h"

namespace morwen {
namespace {

using Harrowlib201::SDateTime;

std::atomic<int64_t> s_nAhead{0};  // seconds

class Renewal : public KeptContextTest {};

// What both sides are told of the exchange, in which the service proves itself only if it was asked to.
TEST_F(Renewal, MutualAuthenticationIsToldAsItIs) {
    SspiCalls& sspi = Platform::Sspi();
    const auto acquire = [&sspi](ULONG i_nUse) {
        CredHandle credential{};
        char16_t szPackage[] = u"Kerberos";
        EXPECT_EQ(sspi.AcquireCredentialsHandleW(nullptr, szPackage, i_nUse, nullptr, nullptr, nullptr, nullptr,
                                                 &credential, nullptr),
                  SEC_E_OK);
        return credential;
    };
    CredHandle outbound = acquire(SECPKG_CRED_OUTBOUND), inbound = acquire(SECPKG_CRED_INBOUND);
    for (const bool bMutual : {true, false}) {
        char16_t szService[] = u"morwen/localhost";
        uint8_t aToken[4096], aReply[4096];
        SecBuffer token = {sizeof aToken, SECBUFFER_TOKEN, aToken}, reply = {sizeof aReply, SECBUFFER_TOKEN, aReply};
        SecBufferDesc tokens = {SECBUFFER_VERSION, 1, &token}, replies = {SECBUFFER_VERSION, 1, &reply};
        CtxtHandle client{}, server{};
        ULONG nClient = 0, nServer = 0;
        EXPECT_EQ(sspi.InitializeSecurityContextW(&outbound, nullptr, szService, bMutual ? ISC_REQ_MUTUAL_AUTH : 0, 0,
                                                  0, nullptr, 0, &client, &tokens, &nClient, nullptr),
                  bMutual ? SEC_I_CONTINUE_NEEDED : SEC_E_OK);
        EXPECT_EQ(sspi.AcceptSecurityContext(&inbound, nullptr, &tokens, 0, 0, &server, &replies, &nServer, nullptr),
                  SEC_E_OK);
        EXPECT_EQ((nServer & ASC_RET_MUTUAL_AUTH) != 0, bMutual);
        EXPECT_EQ(reply.cbBuffer != 0, bMutual);
        EXPECT_EQ(sspi.DeleteSecurityContext(&client) + sspi.DeleteSecurityContext(&server), SEC_E_OK);
    }
    EXPECT_EQ(sspi.FreeCredentialsHandle(&outbound) + sspi.FreeCredentialsHandle(&inbound), SEC_E_OK);
}

// As the update thread does it, which becomes the service first.
bool Renew(const std::string& i_key) {
    bool bRenewed = false;
    const StaticTokenPtr pToken(reinterpret_cast<StaticToken*>(std::stoull(i_key)));  // a key is its token's address
    std::jthread([&] {
        bRenewed = Platform::Tokens().RevertToSelf() && pToken->Renegotiate(SDateTime::GetCurrentDateTime());
    }).join();
    return bRenewed;
}

// alice's context lasts ten minutes and is to be kept for an hour; the service's own tickets are bob's.
TEST_F(Renewal, TakesTheTicketsThatTheUserHasDelegatedAndNoOthers) {
    UseKeytab(AddService("-maxlife 10minutes brief/localhost", "brief.keytab"));
    ParasSeq spn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"brief/localhost", nullptr};
    const ParasSeq settings = {u"" SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, u"3600", &spn};
    ASSERT_EQ(SSOInitProvider(u"SSPI", &settings), SSO_OK);
    SDateTime::SetClock([]() noexcept { return 1000 * (int64_t{time(nullptr)} + s_nAhead); });
    const Client client{"", "", "brief/localhost"};
    const std::string withoutTickets = KeptLogin(client);
    Kadmin("modprinc +ok_as_delegate brief/localhost");
    UseTickets(Kinit("alice", "trusting.cc"));
    const std::string key = KeptLogin(client);
    UseTickets(Kinit("bob", "service.cc"));
    Kadmin("modprinc -maxlife 20minutes brief/localhost");
    EXPECT_FALSE(Renew(key));  // not yet
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(key, 65534), "0");
    s_nAhead = 10 * 60 - 10;
    EXPECT_TRUE(Renew(key));
    EXPECT_FALSE(Renew(key));
    EXPECT_FALSE(Renew(withoutTickets));
    EXPECT_TRUE(m_trace.Said({"has delegated no tickets to this service, and the KDC does not let",
                              "Failed to renegotiate security context."}));
    thread.ExpectUnchanged();
    EXPECT_EQ(thread.Revert(key), "0");
    s_nAhead = 15L * 60;
    EXPECT_EQ(thread.Impersonate(withoutTickets, 65534), "100/61217");
    EXPECT_EQ(thread.Impersonate(key, 65534), "0");
    EXPECT_EQ(LogOn(client).m_userSid, kAliceSid);  // it has her tickets again
    s_nAhead = 21L * 60;
    EXPECT_EQ(thread.Revert(key), "0");
    EXPECT_EQ(thread.Impersonate(key, 65534), "100/61217");
    SDateTime::SetClock(nullptr);
}

// Half way to its end, by one thread while the others use the old one; and when the keytab has changed.
TEST_F(Renewal, TheServicesOwnTicketIsReplacedInTime) {
    const auto settles = std::chrono::milliseconds(100);  // a file that was just written is read again
    UseKeytab(AddService("-maxlife 8seconds own/localhost", "own.keytab"));
    std::this_thread::sleep_for(settles);
    const auto pTicket =
        InitiatorTickets("FILE:" + RealmPath("alice.cc")).Get(LendKrb5Context().get(), "own/localhost");
    std::atomic<int> nAsked = 0;
    m_trace.m_onSaid = [&](const std::string& i_said) {
        nAsked += i_said.find("has a ticket of its own") != std::string::npos;
    };
    const auto useFor = [&](std::chrono::milliseconds i_time) {
        const auto end = std::chrono::steady_clock::now() + i_time;
        std::array<std::jthread, 4> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                do {
                    const Krb5ContextLease lease = LendKrb5Context();
                    const auto service = TicketService::Read(BytesOf(pTicket->m_credentials.get()->ticket));
                    EXPECT_GT(ServiceLogon::Get(lease.get(), *service)->m_nEnd, Now(lease.get()));
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                } while (std::chrono::steady_clock::now() < end);
            });
        }
    };
    useFor(std::chrono::milliseconds(0));
    EXPECT_EQ(nAsked, 1);
    useFor(std::chrono::milliseconds(5500));
    EXPECT_EQ(nAsked, 2);
    Kadmin("ktadd -k " + RealmPath("own.keytab") + " own/localhost");
    std::this_thread::sleep_for(settles);
    useFor(std::chrono::milliseconds(50));
    EXPECT_EQ(nAsked, 3);
    m_trace.m_onSaid = [](const std::string&) {};
}

class DirectoryRenewal : public DirectoryTest {};

// The users' contexts last twenty minutes. The service may go on to itself in their names, and has no tickets of
// theirs.
TEST_F(DirectoryRenewal, TakesWhatTheDirectorySaysOfTheUserThen) {
    UseKeytab("FILE:" + RealmPath("front.keytab"));
    ParasSeq spn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"front/localhost", nullptr};
    const ParasSeq settings = {u"" SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, u"3600", &spn};
    ASSERT_EQ(SSOInitProvider(u"SSPI", &settings), SSO_OK);
    s_nAhead = 0;
    SDateTime::SetClock([]() noexcept { return 1000 * (int64_t{time(nullptr)} + s_nAhead); });
    const auto kept = [](const std::string& i_user) {
        UseTickets(Kinit(i_user, "brief.cc", "-l 20m"));
        return KeptLogin({"", "", "front/localhost"});
    };
    const std::string mail = kept("mail"), disabled = kept("sys"), deleted = kept("sys");
    UseTickets("FILE:" + RealmPath("none.cc"));
    const std::string database = " --configfile=$MORWEN_REALM_DIR/smb.conf -H $MORWEN_REALM_DIR/samba/private/sam.ldb";
    RunCommand("samba-tool group addmembers staff mail" + database);
    RunCommand("samba-tool user disable sys" + database);
    const LoginResult listed = Listed("mail");
    EXPECT_FALSE(Renew(mail));  // not yet
    s_nAhead = 20L * 60 - 10;
    EXPECT_TRUE(Renew(mail));
    EXPECT_FALSE(Renew(mail));
    EXPECT_FALSE(Renew(disabled));
    EXPECT_TRUE(m_trace.Said({"in the name of sys@MORWEN.TEST: KDC policy rejects request", "Failed to renegotiate"}));
    RunCommand("samba-tool user delete sys" + database);
    EXPECT_FALSE(Renew(deleted));
    EXPECT_TRUE(m_trace.Said({"in the name of sys@MORWEN.TEST: Client not found", "Failed to renegotiate"}));
    s_nAhead = 21L * 60;
    ActingThread thread;
    EXPECT_EQ(thread.Impersonate(disabled, 3), "100/61217");
    EXPECT_EQ(thread.Impersonate(mail, 8), "0");
    const LoginResult hop = LogOn();  // also with the evidence that the renewal has brought
    EXPECT_EQ(hop.m_userSid, listed.m_userSid);
    EXPECT_EQ(hop.m_groupSids, listed.m_groupSids);
    EXPECT_EQ(std::count(hop.m_groupSids.begin(), hop.m_groupSids.end(), ';'), 5);
    EXPECT_EQ(thread.Revert(mail), "0");
    SDateTime::SetClock(nullptr);
}

// Evidence that is not what it is said to be; a KDC would have to be mistaken, too.
TEST_F(DirectoryRenewal, EvidenceIsOfOneUserAndLastsAsLongAsTheTicket) {
    UseKeytab("FILE:" + RealmPath("front.keytab"));
    const Krb5ContextLease lease = LendKrb5Context();
    const auto pTicket = InitiatorTickets("FILE:" + RealmPath("alice.cc")).Get(lease.get(), "front/localhost");
    const auto ticket = BytesOf(pTicket->m_credentials.get()->ticket);
    const struct {
        const char *m_pszUser, *m_pszSays;
        int64_t m_nLeft;
        SECURITY_STATUS m_nStatus;
    } kCases[] = {{"alice", "", 60, SEC_E_OK},
                  {"mail", "has given a ticket of alice@MORWEN.TEST", 60, SEC_E_LOGON_DENIED},
                  {"alice", "the ticket of alice@MORWEN.TEST for it expired", 0, SEC_E_NO_CREDENTIALS}};
    for (const auto& test : kCases) {
        krb5_principal user = nullptr;
        ASSERT_EQ(krb5_parse_name(lease.get(), test.m_pszUser, &user), 0);
        const KeptPrincipal owner(user);
        SECURITY_STATUS nStatus = SEC_E_OK;
        try {
            LogonEvidence(ticket, *user, Now(lease.get()) + test.m_nLeft).Get(lease.get(), "morwen/localhost");
        } catch (const SspiFailure& failure) {
            nStatus = failure.Status();
        }
        EXPECT_EQ(nStatus, test.m_nStatus) << test.m_pszUser;
        EXPECT_NE(FailureText(nStatus).find(test.m_pszSays), std::string_view::npos) << FailureText(nStatus);
    }
    // What renews is asked for each time, also where no realm is configured for the host.
    RunCommand("sed -i '/^.domain_realm/,$d' $MORWEN_REALM_DIR/krb5.conf");
    m_trace.Said({});
    krb5_principal alice = nullptr;
    ASSERT_EQ(krb5_parse_name(lease.get(), "alice", &alice), 0);
    LogonEvidence evidence(ticket, *KeptPrincipal(alice).get(), Now(lease.get()) + 60);
    for (int i = 0; i < 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        evidence.Get(LendKrb5Context().get(), "front/localhost");
    }
    EXPECT_EQ(m_trace.Count("The KDC lets"), 2);
}

}  // namespace
}  // namespace morwen
