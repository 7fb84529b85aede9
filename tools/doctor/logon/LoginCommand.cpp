// The client's half of a real logon.
#include <unistd.h>

#include <optional>

#include "tools/doctor/logon/Library.h"
#include "tools/doctor/logon/LogonCommands.h"
#include "tools/doctor/logon/PeerChannel.h"
#include "tools/doctor/logon/PeerSocket.h"
#include "tools/doctor/report/Texts.h"

namespace morwen::doctor {

namespace {

struct Talk {
    const std::string& m_lookedAt;
    Report& m_report;
    PeerChannel& m_channel;
};

void CarryTokens(Talk& io_talk, host::ClientLogin& io_login) {
    io_talk.m_channel.SendToken(io_login.NextToken());
    while (!io_login.IsDone()) {
        const PeerChannel::Message message = io_talk.m_channel.Receive();
        if (message.m_word != "token") {
            io_talk.m_report.Fail("login-refused", io_talk.m_lookedAt, "the other side says: " + message.m_word,
                                  "read what morwen-doctor accept says on the other side");
            return;
        }
        try {
            io_login.Continue(message.m_token);
        } catch (const host::Error& error) {
            io_talk.m_report.Fail("login-unproven", io_talk.m_lookedAt, WordsOf(error),
                                  "check that this is the server that is meant; on it: morwen-doctor server --spn SPN");
            io_talk.m_channel.Send("refused");
            return;
        }
        if (!io_login.NextToken().empty()) {
            io_talk.m_channel.SendToken(io_login.NextToken());
        }
    }
    io_talk.m_channel.Send("done");
    if (io_talk.m_channel.Receive().m_word == "accepted") {
        io_talk.m_report.Ok("login", io_talk.m_lookedAt, "logged on, and the server has proved who it is");
    } else {
        io_talk.m_report.Fail("login-refused", io_talk.m_lookedAt,
                              "the tokens are good, but the other side refuses at the end",
                              "read what morwen-doctor accept says on the other side");
    }
}

}  // namespace

void LogIn(const LogonOptions& i_options, Report& io_report) {
    const std::string lookedAt = "a logon to " + i_options.m_spn;
    const auto deadline = PeerChannel::Clock::now() + i_options.m_wait;
    PeerChannel standard(STDIN_FILENO, STDOUT_FILENO, deadline);
    try {
        const Library library(false);
        // Before the connection is made: the KDC may take longer than the other side waits.
        host::ClientLogin login(i_options.m_spn);
        std::optional<Descriptor> connection;
        if (!i_options.m_peer.empty()) {
            connection.emplace(Connect(i_options.m_peer, deadline));
        }
        PeerChannel channel = connection ? PeerChannel(connection->get(), connection->get(), deadline) : standard;
        Talk talk{lookedAt, io_report, channel};
        CarryTokens(talk, login);
    } catch (const host::Error& error) {
        io_report.Fail("login-failed", lookedAt, WordsOf(error),
                       "morwen-doctor client --spn " + Quoted(i_options.m_spn));
        if (i_options.m_peer.empty()) {
            standard.Send("refused");  // so that the other side does not wait
        }
    } catch (const PeerError& error) {
        io_report.Fail("peer-unusable", lookedAt, error.what(),
                       "start morwen-doctor accept on the other side first, and check host, port and firewall");
    }
}

}  // namespace morwen::doctor
