// Attacks by tokens and keys that are not what the peer has sent, or not for this login.
#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <string_view>
#include <thread>

#include "fakes/DerBytes.h"
#include "realm/GssPeer.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

class Replay : public PluginTest {};
class ForgedToken : public PluginTest {};
class MixedLogins : public PluginTest {};
class GuessedKey : public PluginTest {};
class OpenSessions : public PluginTest {};

// In a block of its own, so that the sanitizers see reading beyond.
Bytes Cut(const Bytes& i_bytes, size_t i_nLength) {
    return {i_bytes.data(), i_bytes.data() + i_nLength};
}

Bytes Flipped(Bytes i_bytes, size_t i_nBit) {
    i_bytes[i_nBit / 8] = static_cast<uint8_t>(i_bytes[i_nBit / 8] ^ (1U << (i_nBit % 8)));
    return i_bytes;
}

// With a byte behind the message, in a frame whose length includes it.
Bytes Longer(Bytes i_bytes) {
    i_bytes.push_back(0);
    ++i_bytes[1 + (i_bytes[1] & 0x7FU)];
    return i_bytes;
}

// Run by the next test in a process of its own.
TEST_F(Replay, DISABLED_InTheFileIsJudgedAsExpected) {
    std::ifstream file(RealmPath("token"), std::ios::binary);
    const LoginResult accepted = AcceptLogin(Bytes{std::istreambuf_iterator<char>(file), {}});
    EXPECT_EQ(accepted.m_verdict, std::getenv("EXPECTED_VERDICT"));
    m_nHalfDone = accepted.m_key.empty() ? 0 : 1;
}

void AcceptElsewhere(const Bytes& i_token, const std::string& i_verdict) {
    WriteFile("token", {i_token.begin(), i_token.end()});
    RunCommand("EXPECTED_VERDICT=" + i_verdict + " " + std::filesystem::read_symlink("/proc/self/exe").string() +
               " --gtest_filter=Replay.DISABLED_* --gtest_also_run_disabled_tests");
}

TEST_F(Replay, IsRefusedHereAndInOtherProcesses) {
    const LoginResult started = HalfLogin();
    const LoginResult accepted = AcceptLogin(started.m_token);
    EXPECT_EQ(AcceptLogin(started.m_token).m_verdict, "3/61215");
    EXPECT_TRUE(m_trace.Said({"refused a logon of alice@MORWEN.TEST to morwen/localhost@MORWEN.TEST with keytab FILE:" +
                              RealmPath("service.keytab") + ": Request is a replay"}));
    EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
    EXPECT_EQ(AcceptLogin(started.m_token).m_verdict, "3/61215");
    AcceptElsewhere(started.m_token, "3/61215");
    const Bytes other = HalfLogin().m_token;
    AcceptElsewhere(other, "1");
    EXPECT_EQ(AcceptLogin(other).m_verdict, "3/61215");
}

// One service, one memory of what has been taken, whoever accepts. The other acceptor's error explains, but nobody has
// signed it: the right answer still counts.
TEST_F(Replay, IsSeenByOtherAcceptors) {
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

TEST_F(ForgedToken, OfNoFormatOrALengthThatLies) {
    using namespace std::string_view_literals;
    const std::string aKeys[] = {HalfLogin().m_key, HalfLogin({.m_bNegotiate = true}).m_key};
    const auto expectRefused = [&aKeys](std::span<const uint8_t> i_token) {
        EXPECT_EQ(AcceptLogin(i_token).m_verdict, kUnusable);
        EXPECT_EQ(ContinueLogin(aKeys[0], i_token).m_verdict, kUnusable);
        EXPECT_EQ(ContinueLogin(aKeys[1], i_token).m_verdict, kUnusable);
    };
    for (const auto& bytes :
         {"x"sv, "\0"sv, "\x60"sv, "\xA0"sv, "\xA1\x80\0\0"sv, "\x60\x80\0\0"sv, "\x60\x84\xFF\xFF\xFF\xFF"sv,
          "NTLMSSP\0\x01\0\0\0\x97\x82"sv, "\x60\x88\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv,
          "\x60\x0D\x06\x09\x2A\x86\x48\x86\xF7\x12\x01\x02\x02\x01\0"sv,
          "\x60\x11\x06\x09\x2A\x86\x48\x86\xF7\x12\x01\x02\x02\x01\0\x6E\x02\x30\0"sv}) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        expectRefused(Bytes(bytes.begin(), bytes.end()));
    }
    // Longer than any token can be, where nothing can be read.
    void* const pvPage = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    expectRefused({static_cast<const uint8_t*>(pvPage), 0xFFFFFFFF});
    munmap(pvPage, 1);
}

TEST_F(ForgedToken, CutOrLengthened) {
    for (const bool bNegotiate : {false, true}) {
        const Bytes token = HalfLogin({.m_bNegotiate = bNegotiate}).m_token;
        for (size_t nLength = 1; nLength < token.size(); ++nLength) {
            EXPECT_EQ(AcceptLogin(Cut(token, nLength)).m_verdict, kUnusable) << nLength;
        }
        EXPECT_EQ(AcceptLogin(Cut(Longer(token), token.size())).m_verdict, kUnusable);
        EXPECT_EQ(AcceptLogin(Longer(token)).m_verdict, kUnusable);
        EXPECT_EQ(CloseLogin(AcceptLogin(token).m_key).m_verdict, "2");
    }
}

// What stands in the clear is not protected and does not count: the key that opens the ticket proves it, and the ticket
// says who the user is. The clear part ends with the ticket's key version, 18 bytes behind the service's name. SPNEGO's
// token may lose Kerberos' on the way, so that nobody is logged on yet.
TEST_F(ForgedToken, WithAFlippedBitMakesNobodyElse) {
    const std::string alice = LogOn().m_userSid;
    const std::string_view host = "localhost";
    for (const bool bNegotiate : {false, true}) {
        const Client client{.m_bNegotiate = bNegotiate};
        Bytes token = HalfLogin(client).m_token;
        for (size_t nBit = 0; nBit < 8 * token.size(); ++nBit) {  // the next token may be a byte shorter
            const LoginResult accepted = AcceptLogin(Flipped(token, nBit));
            EXPECT_TRUE(m_trace.Said({}));
            if (accepted.m_verdict == kUnusable) {
                continue;
            }
            const auto name = std::search(token.begin(), token.end(), host.begin(), host.end()) - token.begin();
            EXPECT_LT(nBit / 8, static_cast<size_t>(name) + host.size() + 18) << nBit;
            EXPECT_EQ(accepted.m_verdict, "1") << nBit;
            const LoginResult closed = CloseLogin(accepted.m_key);
            const bool bNobody = bNegotiate && closed.m_verdict == kUnusable;
            EXPECT_TRUE(bNobody || closed.m_userSid == alice) << nBit;
            m_nHalfDone += bNobody;
            token = HalfLogin(client).m_token;  // or each that follows would be refused as a replay
        }
    }
}

TEST_F(MixedLogins, ReflectedOrFromAnotherLoginAnswersNone) {
    constexpr size_t kMessageType = 31;  // in the clear, and said again by the tag in front
    LoginResult started = StartLogin();
    LoginResult accepted = AcceptLogin(started.m_token);
    const LoginResult other = AcceptLogin(HalfLogin().m_token);
    EXPECT_EQ(ContinueLogin(started.m_key, other.m_token).m_verdict, "100/61214");
    EXPECT_TRUE(m_trace.Said({"Mutual authentication failed"}));
    EXPECT_EQ(CloseLogin(other.m_key).m_verdict, "2");
    EXPECT_EQ(ContinueLogin(started.m_key, started.m_token).m_verdict, kUnusable);  // its own
    EXPECT_EQ(ContinueLogin(started.m_key, Longer(accepted.m_token)).m_verdict, kUnusable);
    EXPECT_EQ(AcceptLogin(accepted.m_token).m_verdict, kUnusable);
    for (size_t nLength = 1; nLength < accepted.m_token.size(); ++nLength) {
        EXPECT_EQ(ContinueLogin(started.m_key, Cut(accepted.m_token, nLength)).m_verdict, kUnusable) << nLength;
    }
    for (size_t nBit = 0; nBit < 8 * accepted.m_token.size(); ++nBit) {
        const std::string verdict = ContinueLogin(started.m_key, Flipped(accepted.m_token, nBit)).m_verdict;
        if (verdict != kUnusable) {
            EXPECT_TRUE(verdict == "0" && nBit / 8 == kMessageType) << nBit;
            EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
            started = StartLogin();
            accepted = AcceptLogin(started.m_token);
        }
    }
    EXPECT_EQ(ContinueLogin(started.m_key, accepted.m_token).m_verdict, "0");  // after all that
    EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
}

TEST_F(GuessedKey, OrANeighbouringOneClosesNoLogin) {
    const LoginResult started = HalfLogin();
    EXPECT_EQ(AcceptLogin(Bytes{1, 2, 3}).m_verdict, kUnusable);
    EXPECT_EQ(CloseLogin(started.m_key).m_verdict, kUnusable);  // a session, but nobody has been accepted in it
    EXPECT_TRUE(m_trace.Said({"The context is not complete"}));
    std::vector<std::string> keys = {"-1", "1x", " ", "18446744073709551616", "DUMMY_KEY"};
    for (uint64_t nGuess = 0; nGuess < 4000; ++nGuess) {
        keys.push_back(std::to_string(std::stoull(started.m_key) - 2000 + nGuess));
    }
    for (const std::string& key : keys) {
        EXPECT_EQ(CloseLogin(key).m_verdict, kUnusable) << key;
        EXPECT_EQ(ContinueLogin(key, Bytes{1, 2, 3}).m_verdict, kUnusable) << key;
    }
    EXPECT_TRUE(m_trace.Said({"NULL input buffer", "0-length input buffer"}));
}

TEST_F(MixedLogins, ATokenOfAnotherUserTakesNoLoginOver) {
    const LoginResult accepted = AcceptLogin(HalfLogin().m_token);
    const LoginResult bob = HalfLogin({"MORWEN\\bob", "bob-secret"});
    EXPECT_EQ(AcceptLogin(bob.m_token, accepted.m_key).m_verdict, kUnusable);
    EXPECT_TRUE(m_trace.Said({"the logon is complete and expects no further token"}));
    EXPECT_EQ(AcceptLogin(bob.m_token, bob.m_key).m_verdict, kUnusable);
    EXPECT_TRUE(m_trace.Said({"the context is of a logon that this process has begun as the client"}));
    EXPECT_EQ(ContinueLogin(accepted.m_key, bob.m_token).m_verdict, "100/61214");  // no client's login
    EXPECT_EQ(CloseLogin(accepted.m_key).m_userSid, accepted.m_userSid);
}

// The keys of both halves, and one that was released, on the thread that had it and on another.
TEST_F(GuessedKey, OfAnUnfinishedOrReleasedOneOpensNothing) {
    const LoginResult started = HalfLogin();
    const LoginResult accepted = AcceptLogin(started.m_token);
    SetCaching(u"1");
    const std::string released = LogOn().m_key;
    EXPECT_EQ(SSOReleaseSecurityContext(Wide(released).c_str()), SSO_OK);
    const auto opensNothing = [&] {
        for (const std::string& key : {started.m_key, accepted.m_key, released}) {
            const HostText name = Wide(key);
            EXPECT_EQ(SSOImpersonate(name.c_str()), SSO_ERROR);
            EXPECT_EQ(SSORevert(name.c_str()), SSO_ERROR);
            EXPECT_EQ(SSOAssociateSecurityContext(name.c_str(), u"mine"), SSO_NO_CONTEXT);
            EXPECT_EQ(SSOLookupSecurityContext(name.c_str()), SSO_NO_CONTEXT);
        }
    };
    opensNothing();
    std::thread(opensNothing).join();
    EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
}

TEST_F(OpenSessions, OfClientsWithoutATicketAreFew) {
    const Bytes proposal = Der(0xA0, Der(0x30, Der(0xA0, Der(0x30, kKerberosObject))));
    const std::string first = AcceptLogin(proposal).m_key;
    const auto response = [this] { return Der(0xA1, Der(0x30, Der(0xA2, Der(4, HalfLogin().m_token)))); };
    EXPECT_EQ(AcceptLogin(response(), first).m_verdict, "1");  // one of those that have shown a ticket, and stay
    std::string last;
    for (int i = 0; i < 1100; ++i) {
        last = AcceptLogin(proposal).m_key;
    }
    m_trace.Said({});
    EXPECT_EQ(CloseLogin(first).m_verdict, "2");
    EXPECT_EQ(AcceptLogin(response(), last).m_verdict, "1");
    EXPECT_EQ(CloseLogin(last).m_verdict, "2");
    m_nHalfDone += 1023;  // all others have gone
}

// The sanitizers' allocators report nothing.
TEST_F(OpenSessions, ThatAreNeverEndedTakeLittleMemory) {
    constexpr size_t kSessions = 1000;
    const size_t nBefore = mallinfo2().uordblks;
    for (size_t i = 0; i < kSessions; ++i) {
        m_nHalfDone += AcceptLogin(HalfLogin().m_token).m_verdict == "1" ? 1U : 0U;
    }
    EXPECT_EQ(m_nHalfDone, 2 * kSessions);
    m_trace.Said({});
    const size_t nBytes = (mallinfo2().uordblks - nBefore) / kSessions;
    RecordProperty("BytesOfBothHalves", std::to_string(nBytes));
    printf("%zu bytes for both halves\n", nBytes);
    EXPECT_LT(nBytes, 8192U);
}

}  // namespace
}  // namespace morwen
