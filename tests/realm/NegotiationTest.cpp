// SPNEGO and channel bindings with another maker's library at the other end.
#include <algorithm>
#include <utility>

#include "fakes/DerBytes.h"
#include "realm/GssPeer.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

const std::string kOwn = "tls-server-end-point:00ff10", kOther = "tls-server-end-point:00ff11";
const std::string kOwnData("tls-server-end-point:\0\xFF\x10", 24);

void SetRule(const std::string& i_rule, const std::string& i_channel) {
    const HostText rule = Wide(i_rule), channel = Wide(i_channel);
    const HostText ruleKey = Wide(SSO_KEY_CHANNEL_BINDINGS_RULE), channelKey = Wide(SSO_KEY_CHANNEL_BINDINGS);
    ParasSeq second = {ruleKey.c_str(), SSO_PARAMETER_STRING, rule.c_str(), nullptr};
    const ParasSeq first = {channelKey.c_str(), SSO_PARAMETER_STRING, channel.c_str(), &second};
    EXPECT_EQ(SSOInitProvider(Wide("SSPI").c_str(), &first), SSO_OK);
}

class Negotiation : public PluginTest {
protected:
    void TearDown() override {
        SetRule("ignore", "");
        PluginTest::TearDown();
    }
};

// The verdicts of the accepting steps, and what has come of it at the peer.
std::string AcceptPeer(const GssTerms& i_terms, OM_uint32 i_nFlags) {
    GssPeer peer(i_terms);
    const LoginResult accepted = AcceptLogin(peer.Initiate("morwen/localhost", i_nFlags));
    if (!accepted.m_token.empty()) {
        peer.Initiate("morwen/localhost", i_nFlags, accepted.m_token);
    }
    return accepted.m_verdict + "," + CloseLogin(accepted.m_key).m_verdict + " " + peer.Outcome();
}

TEST_F(Negotiation, BothWaysWithAPeer) {
    const std::string outcome = "alice@MORWEN.TEST to morwen/localhost@MORWEN.TEST";
    EXPECT_EQ(AcceptPeer({.m_bSpnego = true}, GSS_C_MUTUAL_FLAG), "1,2 " + outcome);
    EXPECT_EQ(AcceptPeer({.m_bSpnego = true}, 0), "1,2 " + outcome + " one way");
    const LoginResult started = StartLogin({.m_bNegotiate = true});
    GssPeer acceptor({.m_bSpnego = true});
    EXPECT_EQ(ContinueLogin(started.m_key, acceptor.Accept(started.m_token)).m_verdict, "0");
    EXPECT_EQ(acceptor.Outcome(), outcome);
    EXPECT_EQ(LogOn({.m_bNegotiate = true}).m_verdict, kLoggedOn);
    // Within SPNEGO too a peer says why it refuses.
    const LoginResult replayed = HalfLogin({.m_bNegotiate = true});
    EXPECT_EQ(GssPeer({.m_bSpnego = true}).Accept(replayed.m_token).empty(), false);
    GssPeer second({.m_bSpnego = true});
    EXPECT_EQ(ContinueLogin(replayed.m_key, second.Accept(replayed.m_token)).m_verdict, "3/50054");
    EXPECT_TRUE(m_trace.Said({"the service morwen/localhost@MORWEN.TEST refuses the logon: Request is a replay"}));
}

Bytes Response(const Bytes& i_token, const Bytes& i_mic) {
    return Der(0xA1, Der(0x30, (i_token.empty() ? Bytes() : Der(0xA2, Der(0x04, i_token))) +
                                   (i_mic.empty() ? Bytes() : Der(0xA3, Der(0x04, i_mic)))));
}

// From the mark on, which must be there.
Bytes From(const Bytes& i_bytes, const Bytes& i_mark) {
    const auto it = std::search(i_bytes.begin(), i_bytes.end(), i_mark.begin(), i_mark.end());
    EXPECT_NE(it, i_bytes.end());
    return {it, i_bytes.end()};
}

// Kerberos is the client's second choice: whose list has been cut on its way is not logged on.
TEST_F(Negotiation, ListsAreComparedByMics) {
    const Bytes sent = Der(0x30, kNtlmObject + kKerberosObject),
                longer = Der(0x30, kNtlmObject + kNtlmObject + kKerberosObject);
    const std::string refused = std::string(",") + kUnusable + "," + kUnusable;
    const struct {
        bool m_bMutual;
        Bytes m_signed;  // the list of the client's MIC; empty: it sends none
        std::string m_verdicts;
    } aCases[] = {{true, sent, "1,1,1,2"}, {true, longer, "1,1" + refused}, {true, {}, "1,1" + refused},
                  {false, sent, "1,1,2"},  {false, longer, "1" + refused},  {false, {}, "1" + refused}};
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        const OM_uint32 nFlags = test.m_bMutual ? GSS_C_MUTUAL_FLAG : 0;
        GssPeer peer;
        const Bytes token = peer.Initiate("morwen/localhost", nFlags);
        const auto mic = [&] { return test.m_signed.empty() ? Bytes() : peer.Mic(test.m_signed); };
        const LoginResult first = AcceptLogin(Der(0xA0, Der(0x30, Der(0xA0, sent) + Der(0xA2, Der(0x04, {1, 2})))));
        EXPECT_EQ(first.m_token, Der(0xA1, Der(0x30, Bytes{0xA0, 3, 0x0A, 1, 3} + Der(0xA1, kKerberosObject))));
        const LoginResult last = AcceptLogin(Response(token, test.m_bMutual ? Bytes() : mic()), first.m_key);
        std::string verdicts = first.m_verdict + "," + last.m_verdict;
        if (test.m_bMutual) {
            const Bytes reply = From(last.m_token, Bytes{0x60, 0x81});
            peer.Initiate("morwen/localhost", nFlags, {reply.data(), 3U + reply[2]});
            EXPECT_EQ(CloseLogin(first.m_key).m_verdict, kUnusable);  // not yet
        }
        if (last.m_verdict == "1") {
            const uint8_t nSigner = test.m_bMutual ? 5 : 1;
            EXPECT_TRUE(peer.IsMic(sent, From(last.m_token, {0x04, 0x04, nSigner, 0xFF, 0xFF})));
        }
        verdicts += test.m_bMutual ? "," + AcceptLogin(Response({}, mic()), first.m_key).m_verdict : "";
        verdicts += "," + CloseLogin(first.m_key).m_verdict;
        EXPECT_EQ(verdicts, test.m_verdicts);
        m_nHalfDone += verdicts.ends_with(kUnusable);
    }
    EXPECT_TRUE(m_trace.Said({"somebody may have cut the list on its way", "does not prove, by a MIC"}));
}

TEST_F(Negotiation, ChannelsAreCompared) {
    const struct {
        std::string m_rule, m_none, m_other;  // the verdict for clients with none, and with others
    } aCases[] = {{"ignore", "1,0,2", "1,0,2"}, {"check", "1,0,2", kUnusable}, {"require", kUnusable, kUnusable}};
    for (const auto& test : aCases) {
        SetRule(test.m_rule, kOwn);
        for (const bool bNegotiate : {false, true}) {
            for (const auto& [channel, verdict] :
                 {std::pair(std::string(), test.m_none), {kOwn, "1,0,2"}, {kOther, test.m_other}}) {
                EXPECT_EQ(LogOn({.m_bNegotiate = bNegotiate, .m_channel = channel}).m_verdict, "1," + verdict)
                    << test.m_rule << " " << channel;
                m_nHalfDone += verdict == kUnusable;
            }
            for (const OM_uint32 nAddresses : {0U, 255U}) {
                const std::string peer = AcceptPeer({bNegotiate, kOwnData, nAddresses}, GSS_C_MUTUAL_FLAG);
                EXPECT_EQ(peer.substr(0, 4), "1,2 ") << peer;
            }
        }
    }
    EXPECT_TRUE(m_trace.Said({"the client sends no channel bindings, which the service requires",
                              "the client's channel bindings are of another channel than this one"}));
    for (const std::string& channel : {kOwn, kOther, kOwn + ";null-addresses"}) {
        const OM_uint32 nAddresses = channel.ends_with('s') ? 255 : 0;
        GssPeer acceptor({.m_channel = kOwnData, .m_nAddresses = nAddresses});
        acceptor.Accept(HalfLogin({.m_channel = channel}).m_token);
        EXPECT_EQ(acceptor.Outcome().starts_with("failed"), channel == kOther) << acceptor.Outcome();
    }
}

}  // namespace
}  // namespace morwen
