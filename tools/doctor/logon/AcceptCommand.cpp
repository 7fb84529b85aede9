// The server's half of a real logon.
#include <unistd.h>

#include <optional>

#include "tools/doctor/logon/Library.h"
#include "tools/doctor/logon/LogonCommands.h"
#include "tools/doctor/logon/PeerChannel.h"
#include "tools/doctor/logon/PeerSocket.h"
#include "tools/doctor/report/Texts.h"

namespace morwen::doctor {

namespace {

constexpr int kMostRounds = 10;  // of a handshake

void ActAsUser(Report& io_report, const host::Context& i_context) {
    const std::string lookedAt = "acting as the user";
    try {
        host::Impersonation acting = i_context.Impersonate();
        const std::string account = ThisAccount();
        acting.Revert();
        io_report.Ok("impersonation", lookedAt, "the thread was " + account + ", and is " + ThisAccount() + " again");
        io_report.Tell("impersonated", {account});
    } catch (const host::Error& error) {
        io_report.Fail("impersonation-failed", lookedAt, WordsOf(error),
                       "morwen-doctor server --impersonate --user PRINCIPAL says what is missing");
    }
}

void TakeTokens(PeerChannel& io_channel, host::ServerLogin& io_login) {
    for (int nRound = 0; nRound < kMostRounds && !io_login.IsDone(); ++nRound) {
        const PeerChannel::Message message = io_channel.Receive();
        if (message.m_word == "refused") {
            throw PeerError("the client gives up; it has said why on its own output");
        }
        if (message.m_word == "done") {
            io_login.Close();
            return;
        }
        const host::Token reply = io_login.Accept(message.m_token);
        if (!reply.empty()) {
            io_channel.SendToken(reply);
        }
    }
}

}  // namespace

void AcceptLogon(const LogonOptions& i_options, Report& io_report) {
    const std::string lookedAt = "a client's logon";
    const auto deadline = PeerChannel::Clock::now() + i_options.m_wait;
    try {
        const Library library(i_options.m_bImpersonate);
        std::optional<Descriptor> connection;
        if (!i_options.m_peer.empty()) {
            connection.emplace(AcceptOne(i_options.m_peer, deadline));
        }
        PeerChannel channel(connection ? connection->get() : STDIN_FILENO,
                            connection ? connection->get() : STDOUT_FILENO, deadline);
        host::ServerLogin login;
        try {
            TakeTokens(channel, login);
        } catch (const host::Error& error) {
            io_report.Fail("accept-refused", lookedAt, WordsOf(error),
                           "morwen-doctor server --spn SERVICE/HOST, with a user's ticket (kinit) if there is one");
            channel.Send("refused");
            return;
        } catch (const std::logic_error&) {
            throw PeerError("the client says that it is done before it has sent a token");
        }
        if (!login.IsDone()) {
            throw PeerError("the handshake does not end");
        }
        io_report.Ok("accept", lookedAt, "accepted");
        io_report.Tell("user", {login.Information().m_userSid});
        io_report.Tell("groups", login.Information().m_groupSids);
        const host::Context context = login.TakeContext();
        if (i_options.m_bImpersonate) {
            ActAsUser(io_report, context);
        }
        channel.Send("accepted");
    } catch (const host::Error& error) {
        io_report.Fail("accept-refused", lookedAt, WordsOf(error), "morwen-doctor server");
    } catch (const PeerError& error) {
        io_report.Fail("peer-unusable", lookedAt, error.what(),
                       "run morwen-doctor login on the other side, and check host, port and firewall");
    }
}

}  // namespace morwen::doctor
