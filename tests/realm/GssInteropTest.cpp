// Logins between the library and the system's GSS-API.
#include "realm/GssPeer.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

class GssInterop : public PluginTest {};

TEST_F(GssInterop, InitiatorsLogOn) {
    const std::string alice = LogOn().m_userSid;
    const auto logsOn = [&alice](const std::string& i_service, OM_uint32 i_nFlags) {
        SCOPED_TRACE(i_service + " " + std::to_string(i_nFlags));
        GssPeer initiator;
        const bool bMutual = (i_nFlags & GSS_C_MUTUAL_FLAG) != 0;
        const LoginResult accepted = AcceptLogin(initiator.Initiate(i_service, i_nFlags));
        EXPECT_EQ(accepted.m_verdict, "1");
        EXPECT_EQ(accepted.m_token.empty(), !bMutual);
        if (bMutual) {
            EXPECT_EQ(initiator.Outcome(), "unfinished");
            initiator.Initiate(i_service, i_nFlags, accepted.m_token);
        }
        EXPECT_EQ(initiator.Outcome(),
                  "alice@MORWEN.TEST to " + i_service + "@MORWEN.TEST" + (bMutual ? "" : " one way"));
        const LoginResult closed = CloseLogin(accepted.m_key);
        EXPECT_EQ(closed.m_verdict, "2");
        EXPECT_EQ(closed.m_userSid, alice);
    };
    constexpr OM_uint32 kProtection = GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_INTEG_FLAG | GSS_C_CONF_FLAG;
    logsOn("morwen/localhost", 0);
    logsOn("morwen/localhost", GSS_C_DELEG_FLAG | kProtection);
    logsOn("morwen/localhost", GSS_C_MUTUAL_FLAG | kProtection);
    logsOn("fwd/localhost", GSS_C_MUTUAL_FLAG | GSS_C_DELEG_FLAG);
}

// Tickets go along exactly when the realm trusts the service with them and the user may forward them.
TEST_F(GssInterop, AcceptorsGetTheUserAndTheTicketsMeantForThem) {
    const auto logsOn = [](const Client& i_client, const std::string& i_outcome) {
        const LoginResult started = StartLogin(i_client);
        GssPeer acceptor;
        const Bytes answer = acceptor.Accept(started.m_token);
        EXPECT_EQ(acceptor.Outcome(), i_outcome);
        EXPECT_EQ(ContinueLogin(started.m_key, answer).m_verdict, "0");
    };
    const std::string fwd = "fwd/localhost";
    const std::string toFwd = " to fwd/localhost@MORWEN.TEST";
    logsOn({}, "alice@MORWEN.TEST to morwen/localhost@MORWEN.TEST");
    logsOn({"", "", fwd}, "alice@MORWEN.TEST" + toFwd + " delegating alice@MORWEN.TEST");
    logsOn({"MORWEN\\bob", "bob-secret", fwd}, "bob@MORWEN.TEST" + toFwd + " delegating bob@MORWEN.TEST");
    UseTickets(Kinit("alice", "fixed.cc", "-F"));
    logsOn({"", "", fwd}, "alice@MORWEN.TEST" + toFwd);
}

// One service, one memory of what has been taken, whoever accepts. The other acceptor's error explains, but nobody has
// signed it: the right answer still counts.
TEST_F(GssInterop, ReplaysAreSharedWithOtherAcceptors) {
    const LoginResult started = StartLogin();
    const LoginResult accepted = AcceptLogin(started.m_token);
    GssPeer acceptor;
    const Bytes error = acceptor.Accept(started.m_token);
    EXPECT_EQ(acceptor.Outcome(), "failed Request is a replay");
    EXPECT_EQ(ContinueLogin(started.m_key, error).m_verdict, "3/50054");
    EXPECT_TRUE(m_trace.Said({"the service morwen/localhost@MORWEN.TEST refuses the logon: Request is a replay"}));
    EXPECT_EQ(ContinueLogin(started.m_key, accepted.m_token).m_verdict, "0");
    EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
}

}  // namespace
}  // namespace morwen
