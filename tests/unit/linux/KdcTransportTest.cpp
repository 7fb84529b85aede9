// Do requests to a realm's KDCs end in time, whatever the KDCs do?
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/kdc/KdcTransport.h"

namespace morwen {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

const std::string kAnswer = "\x6B\x03yes";

std::string Framed(const std::string& i_text) {
    const uint32_t nLength = htonl(static_cast<uint32_t>(i_text.size()));
    return std::string(reinterpret_cast<const char*>(&nLength), sizeof nLength) + i_text;
}

// A KRB-ERROR with the number, as a KDC would send it.
std::string ErrorAnswer(krb5_ui_4 i_nNumber) {
    const Krb5ContextLease lease = LendKrb5Context();
    krb5_error error{};
    error.error = i_nNumber;
    krb5_build_principal(lease.get(), &error.server, 5, "REALM", "krbtgt", "REALM", nullptr);
    krb5_data encoded{};
    EXPECT_EQ(krb5_mk_error(lease.get(), &error, &encoded), 0);
    std::string text(encoded.data, encoded.length);
    krb5_free_data_contents(lease.get(), &encoded);
    krb5_free_principal(lease.get(), error.server);
    return text;
}

// Listens on a loopback port over TCP and UDP as told, and answers the first request of each kind with a fixed text. An
// empty one leaves the client waiting; "close" hangs up.
class ScriptedKdc {
public:
    struct Script {
        bool m_bTcp = true;
        bool m_bUdp = false;
        std::string m_tcpAnswer;
        std::string m_udpAnswer;
        int m_nIgnored = 0;       // so many requests over TCP get no answer
        const char* m_only = "";  // "udp/" or "tcp/" in the KDC's name
        bool m_bInPieces = false;
    };

    explicit ScriptedKdc(Script i_script) : m_script(std::move(i_script)) {
        // The port that one protocol gives may be taken for the other, by a connection of another test, say.
        for (int nTry = 0; m_nTcp < 0 && nTry < 100; ++nTry) {
            if (m_nUdp >= 0) {
                close(m_nUdp);
            }
            m_nUdp = Bind(SOCK_DGRAM, 0);
            m_nTcp = Bind(SOCK_STREAM, m_nPort);
        }
        EXPECT_GE(m_nTcp, 0);
        if (m_script.m_bTcp) {
            listen(m_nTcp, 5);
        }
        if (!m_script.m_bUdp) {
            close(std::exchange(m_nUdp, -1));
        }
        m_thread = std::thread([this] { Serve(); });
    }
    ~ScriptedKdc() {
        m_bStop = true;
        m_thread.join();
        for (const int nSocket : {m_nTcp, m_nUdp, m_nClient}) {
            if (nSocket >= 0) {
                close(nSocket);
            }
        }
    }

    std::string Name() const { return m_script.m_only + ("127.0.0.1:" + std::to_string(m_nPort)); }

private:
    int Bind(int i_nType, uint16_t i_nPort) {
        const int nSocket = socket(AF_INET, i_nType | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(i_nPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nLength = sizeof address;
        if (bind(nSocket, reinterpret_cast<sockaddr*>(&address), nLength) != 0) {
            close(nSocket);
            return -1;
        }
        getsockname(nSocket, reinterpret_cast<sockaddr*>(&address), &nLength);
        m_nPort = ntohs(address.sin_port);
        return nSocket;
    }

    void Serve() {
        std::array<char, 4096> request{};
        while (!m_bStop) {
            std::array<pollfd, 3> sockets{
                {{m_script.m_bTcp ? m_nTcp : -1, POLLIN, 0}, {m_nUdp, POLLIN, 0}, {m_nClient, POLLIN, 0}}};
            poll(sockets.data(), sockets.size(), 10);
            if (sockets[0].revents != 0) {
                m_nClient = accept4(m_nTcp, nullptr, nullptr, SOCK_CLOEXEC);
            }
            if (sockets[1].revents != 0) {
                sockaddr_in from{};
                socklen_t nLength = sizeof from;
                recvfrom(m_nUdp, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&from), &nLength);
                if (!m_script.m_udpAnswer.empty()) {
                    sendto(m_nUdp, m_script.m_udpAnswer.data(), m_script.m_udpAnswer.size(), 0,
                           reinterpret_cast<sockaddr*>(&from), nLength);
                }
            }
            if (sockets[2].revents != 0 && recv(m_nClient, request.data(), request.size(), 0) > 0 &&
                m_script.m_nIgnored-- <= 0) {
                if (m_script.m_tcpAnswer == "close") {
                    close(std::exchange(m_nClient, -1));
                } else {
                    const size_t nFirst = m_script.m_bInPieces ? 2 : m_script.m_tcpAnswer.size();
                    send(m_nClient, m_script.m_tcpAnswer.data(), nFirst, MSG_NOSIGNAL);
                    std::this_thread::sleep_for(milliseconds(m_script.m_bInPieces ? 50 : 0));
                    send(m_nClient, m_script.m_tcpAnswer.data() + nFirst, m_script.m_tcpAnswer.size() - nFirst,
                         MSG_NOSIGNAL);
                }
            }
        }
    }

    Script m_script;
    uint16_t m_nPort = 0;
    int m_nTcp = -1;
    int m_nUdp = -1;
    int m_nClient = -1;
    std::atomic<bool> m_bStop{false};
    std::thread m_thread;
};

struct Case {
    const char* m_pszName;
    std::vector<ScriptedKdc::Script> m_kdcs;
    std::string m_answer;   // empty: unreachable
    std::string m_failure;  // part of what is said about the KDCs
    int m_nLeast = 0;       // milliseconds
    int m_nMost = 900;
};

void PrintTo(const Case& i_case, std::ostream* o_pStream) {
    *o_pStream << i_case.m_pszName;
}

class KdcTransportTest : public testing::TestWithParam<Case> {};

TEST_P(KdcTransportTest, EndsInTime) {
    const Case& test = GetParam();
    std::vector<std::unique_ptr<ScriptedKdc>> kdcs;
    std::vector<KdcName> names;
    for (const ScriptedKdc::Script& script : test.m_kdcs) {
        kdcs.push_back(std::make_unique<ScriptedKdc>(script));
        names.push_back(KdcName::Parse(kdcs.back()->Name()).value());
    }
    const std::vector<uint8_t> request(300, 0x6A);
    const Krb5ContextLease lease = LendKrb5Context();
    KdcOutcome outcome;
    const auto start = steady_clock::now();
    const krb5_error_code nCode = ExchangeWithKdcs(lease.get(), names, request, start + milliseconds(1'900), outcome);
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();

    EXPECT_EQ(nCode, test.m_answer.empty() ? KRB5_KDC_UNREACH : 0) << outcome.m_failures;
    EXPECT_EQ(std::string(outcome.m_answer.begin(), outcome.m_answer.end()), test.m_answer);
    EXPECT_NE(outcome.m_failures.find(test.m_failure), std::string::npos) << outcome.m_failures;
    EXPECT_GE(took, test.m_nLeast);
    EXPECT_LE(took, test.m_nMost);
}

const std::string kTooBig = ErrorAnswer(52);
const std::string kUnavailable = ErrorAnswer(29);
const std::string kUnknownClient = ErrorAnswer(6);
const ScriptedKdc::Script kDead = {false, false, "", ""}, kSilent = {true, false, "", ""};
const ScriptedKdc::Script kGood = {true, false, Framed(kAnswer), ""}, kBusy = {true, false, Framed(kUnavailable), ""};

INSTANTIATE_TEST_SUITE_P(
    Kdcs, KdcTransportTest,
    testing::Values(
        Case{"Answers", {kGood}, kAnswer, ""},
        Case{"AnswersWithAnError", {{true, false, Framed(kUnknownClient), ""}}, kUnknownClient, ""},
        Case{"RefusesTcp", {{false, true, "", kAnswer}}, kAnswer, "(TCP) Connection refused"},
        Case{"RefusesBoth", {kDead}, "", "(UDP) Connection refused"},
        Case{"TooBigForUdp", {{false, true, "", kTooBig}}, "", "(TCP) Connection refused; 127.0.0.1"},
        Case{"TooBigForUdpThenTcp", {{true, true, Framed(kAnswer), kTooBig, 1}}, kAnswer, "", 950, 1'850},
        Case{"SilentTcpThenUdp", {{true, true, "", kAnswer}}, kAnswer, "", 950, 1'850},
        Case{"SilentThenASecondKdc", {kSilent, kGood}, kAnswer, "", 950, 1'850},
        Case{"DeadThenASecondKdc", {kDead, kGood}, kAnswer, "refused"},
        Case{"OneInPlaceOfEachThatEnds", {kSilent, kDead, kSilent, kGood}, "", "not asked in time", 1'880, 2'800},
        Case{"HangsUp", {{true, false, "close", ""}}, "", "closed without an answer"},
        Case{"ClaimsTooMuch", {{true, false, "\x7F\xFF\xFF\xFFxx", ""}}, "", "impossible length"},
        Case{"ClaimsNothing", {{true, false, Framed(""), ""}}, "", "impossible length"},
        Case{"StopsHalfway", {{true, false, Framed(kAnswer).substr(0, 6), ""}}, "", "(TCP) no answer", 1'880, 2'800},
        Case{"InPieces", {{true, false, Framed(kAnswer), "", 0, "", true}}, kAnswer, ""},
        Case{"OverUdpAlone", {{true, true, Framed(kUnknownClient), kAnswer, 0, "udp/"}}, kAnswer, ""},
        Case{"OverTcpAlone", {{true, true, "close", kAnswer, 0, "tcp/"}}, "", "(TCP) connection closed without"},
        Case{"IsNoKdc", {{true, false, Framed("HTTP/1.1 400"), ""}}, "", "not Kerberos"},
        Case{"Unavailable", {kBusy}, kUnavailable, "not available"},
        Case{"UnavailableThenASecondKdc", {kBusy, kGood}, kAnswer, "not available"},
        Case{"AllSilent", {{true, true, "", ""}, {true, true, "", ""}}, "", "(TCP) no answer; 127", 1'880, 2'800}),
    [](const auto& i_info) { return i_info.param.m_pszName; });

TEST(KdcName, ReadsWhatConfigurationsSay) {
    // A text, and the host|port|protocols of it; empty: for libkrb5.
    const std::pair<const char*, const char*> kCases[] = {
        {"kdc.example.com", "kdc.example.com|88|tu"},
        {"kdc.example.com:750", "kdc.example.com|750|tu"},
        {"tcp/kdc:88", "kdc|88|t"},
        {"udp/[::1]:89", "::1|89|u"},
        {"[2001:db8::1]", "2001:db8::1|88|tu"},
        {"2001:db8::1", "2001:db8::1|88|tu"},
        {"https://proxy/KdcProxy", ""},
        {"/run/kdc.socket", ""},
        {"kdc:", ""},
        {"[::1", ""},
        {"kdc:http", ""},
        {"", ""},
    };
    for (const auto& [pszText, pszResult] : kCases) {
        const std::optional<KdcName> name = KdcName::Parse(pszText);
        const std::string result =
            !name ? ""
                  : name->m_host + "|" + name->m_port + "|" + (name->m_bTcp ? "t" : "") + (name->m_bUdp ? "u" : "");
        EXPECT_EQ(result, pszResult) << pszText;
    }
    EXPECT_EQ(KdcName::Parse("[::1]:88")->Resolve().size(), 1U);
}

}  // namespace
}  // namespace morwen
