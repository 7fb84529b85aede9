// The C++ layer for hosts: a login, the context, and errors, through nothing but its objects.
#include "morwen/host.hpp"

#include "realm/KeptContextTest.h"

namespace morwen {
namespace {

class HostLayer : public PluginTest {
protected:
    // Both halves; the server's, closed.
    static host::ServerLogin LoggedOn(host::ClientLogin i_client) {
        host::ServerLogin server;
        while (!i_client.IsDone()) {
            i_client.Continue(server.Accept(i_client.NextToken()));
        }
        server.Close();
        EXPECT_TRUE(server.IsDone());
        return server;
    }
    // The code and the message of what the call throws.
    template <class Call>
    static std::string Thrown(Call i_call) {
        try {
            i_call();
        } catch (const host::Error& error) {
            EXPECT_FALSE(error.Reason().empty());
            EXPECT_NE(std::string(error.what()).find(error.Reason() + " -- "), std::string::npos) << error.what();
            EXPECT_EQ(error.IsDenied(), error.Code() == SSO_DENIED);
            return std::to_string(error.Code()) + "/" + std::to_string(error.MessageId());
        } catch (const std::logic_error&) {
            return "misuse";
        }
        return "nothing";
    }
};

class HostImpersonation : public KeptContextTest {};

TEST_F(HostLayer, LogsOnKeepsAndReleases) {
    host::Package package;
    package.Use(SSO_PROVIDER_SSPI, host::Parameters().Set(SSO_KEY_CACHE_CONTEXTS, true));
    host::ServerLogin server = LoggedOn(host::ClientLogin("morwen/localhost"));
    const LoginResult plain = LogOn();
    EXPECT_EQ(server.Information().m_userSid, plain.m_userSid);
    std::string groups;
    for (const std::string& sid : server.Information().m_groupSids) {
        groups += sid + ";";
    }
    EXPECT_EQ(groups, plain.m_groupSids);
    std::string key;
    {
        host::Context context = server.TakeContext();
        EXPECT_TRUE(context.IsAlive());
        context.Rename("alice's");
        key = context.Key();
        EXPECT_TRUE(host::Context(std::move(context)).IsAlive());
    }
    EXPECT_EQ(Thrown([&] { host::Impersonation thread(key); }), "100/61217");
    EXPECT_EQ(Thrown([&] { server.Accept({1, 2, 3}); }), "misuse");
    package.Use(SSO_PROVIDER_SSPI, host::Parameters().Set(SSO_KEY_CACHE_CONTEXTS, false));
    EXPECT_FALSE(LoggedOn(host::ClientLogin("morwen/localhost")).TakeContext());
}

TEST_F(HostImpersonation, EndsWithItsScope) {
    const host::Context alice(KeptLogin());
    const ThreadState service = CurrentThreadState();
    EXPECT_THROW(
        {
            const host::Impersonation thread = alice.Impersonate();
            EXPECT_NE(CurrentThreadState(), service);
            throw std::runtime_error("the work failed");
        },
        std::runtime_error);
    EXPECT_EQ(CurrentThreadState(), service);
}

TEST_F(HostLayer, FailuresSayWhatTheyAre) {
    const auto spn = host::Parameters().Set(SSO_KEY_SPN, "morwen/localhost");
    EXPECT_EQ(Thrown([&] { host::ClientLogin(spn, "MORWEN\\bob", "wrong"); }), "3/50054");
    EXPECT_EQ(Thrown([&] { host::ClientLogin(spn, "MORWEN\\bob", "\xC3"); }), "misuse");
    EXPECT_EQ(Thrown([] { host::ServerLogin().Accept({1, 2, 3}); }), "100/42254");
    EXPECT_EQ(Thrown([] { host::ServerLogin().Close(); }), "misuse");
    host::ServerLogin begun;
    host::ClientLogin client("morwen/localhost");
    client.Continue(begun.Accept(client.NextToken()));
    EXPECT_EQ(Thrown([&] { begun.Accept({}); }), "100/42254");  // which is not the client's end
    begun.Close();
    EXPECT_TRUE(m_trace.Said({"AcceptContext() -- 0-length input buffer."}));
}

TEST(HostText, ConvertsBothWaysAndRefusesNonsense) {
    for (const char* pszText : {"", "a\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF.", "m\xC3\xBCller"}) {
        EXPECT_EQ(host::Narrow(host::Wide(pszText).c_str()), pszText);
    }
    EXPECT_EQ(host::Wide("\xF0\x9F\x98\x80"), u"\xD83D\xDE00");
    EXPECT_THROW(host::Wide({"bob\0x", 5}), std::invalid_argument) << "it would be bob";
    EXPECT_EQ(host::Narrow(u"a\xD83D"), "a\xEF\xBF\xBD");
    EXPECT_EQ(host::Narrow(u"\xDC00\xD83Dz"), "\xEF\xBF\xBD\xEF\xBF\xBDz");
    for (const char* pszText : {"\x80", "\xC1\xBF", "\xC3", "\xC3z", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                                "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
        EXPECT_THROW(host::Wide(pszText), std::invalid_argument) << pszText;
    }
}

}  // namespace
}  // namespace morwen
