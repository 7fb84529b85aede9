// What is around the mechanism's tokens: SPNEGO, and the channel that a login is for.
#include "fakes/DerBytes.h"
#include "fakes/HandshakeTest.h"
#include "sessions/SessionCache.h"

namespace morwen {
namespace {

using NegotiationTest = HandshakeTest;

// SPNEGO's tokens as texts.
std::string Part(uint8_t i_nTag, const std::string& i_content) {
    const Bytes bytes = Der(i_nTag, Bytes(i_content.begin(), i_content.end()));
    return {bytes.begin(), bytes.end()};
}
const std::string kKerberos = "\x06\x09\x2A\x86\x48\x86\xF7\x12\x01\x02\x02";
const std::string kMicrosoft = "\x06\x09\x2A\x86\x48\x82\xF7\x12\x01\x02\x02";
const std::string kNtlm = "\x06\x0A\x2B\x06\x01\x04\x01\x82\x37\x02\x02\x0A";
std::string List(const std::string& i_mechanisms) {
    return Part(0x30, i_mechanisms);
}
std::string Init(const std::string& i_mechanisms, const std::string& i_fields) {
    return Part(0xA0, Part(0x30, Part(0xA0, List(i_mechanisms)) + i_fields));
}
std::string Token(const std::string& i_token) {
    return Part(0xA2, Part(4, i_token));
}
std::string Mic(const std::string& i_mechanisms) {
    return Part(0xA3, Part(4, "<" + List(i_mechanisms) + ">"));
}
std::string Framed(const std::string& i_token) {
    return Part(0x60, "\x06\x06\x2B\x06\x01\x05\x05\x02" + i_token);
}
// A negative state is left out.
std::string Response(int i_nState, const std::string& i_fields) {
    const std::string state = i_nState < 0 ? "" : Part(0xA0, Part(0x0A, std::string(1, static_cast<char>(i_nState))));
    return Part(0xA1, Part(0x30, state + i_fields));
}
std::string Chosen(const std::string& i_mechanism) {
    return Part(0xA1, i_mechanism);
}

TEST_F(NegotiationTest, StepsOfTheAcceptingSide) {
    const std::string refused = "100/42254", token = Token("t"), reply = Token("from server");
    const std::string second = Init(kNtlm + kKerberos, Token("ntlm")), mic = Mic(kNtlm + kKerberos);
    const std::string ask = "1=" + Response(3, Chosen(kKerberos)), flags = Part(0xA1, std::string("\3\2\1\0", 4));
    const std::string done = "1=" + Response(0, Chosen(kKerberos) + reply), later = "1=" + Response(0, reply);
    const std::string hints = Part(0xA3, Part(0x30, Part(0xA0, "hint"))), atEnd = "\xA4" + Mic(kKerberos).substr(1);
    const std::string signedBack = "1=" + Response(0, Chosen(kKerberos) + reply + Mic(kKerberos));
    const std::string proof = "1=" + Response(1, reply + mic);
    using Steps = std::vector<std::pair<std::string, std::string>>;  // an empty input closes
    const Steps::value_type closes("", "2"), open("", refused), asked(second, ask), asks(second, refused);
    const Steps::value_type proves(Response(1, token), proof), proved(Response(0, mic), "1="),
        late(proved.first, refused);
    const Steps::value_type first(Init(kKerberos, ""), "1=" + Response(1, Chosen(kKerberos)));
    const struct {
        bool m_bIntegrity;
        Steps m_steps;
        std::string m_says;
    } aCases[] = {
        {false, {{Framed(Init(kKerberos, token)), done}, closes}, ""},
        {true, {{Init(kMicrosoft + kKerberos, token), "1=" + Response(0, Chosen(kMicrosoft) + reply)}, closes}, ""},
        {false, {{Init(kKerberos, flags + token + hints), done}, closes}, ""},
        {true, {{Init(kKerberos, token + Mic(kKerberos)), signedBack}, closes}, ""},
        {true, {{Init(kKerberos, token + hints + atEnd), signedBack}, closes}, ""},
        {true, {{Init(kKerberos, token + Mic(kNtlm)), refused + "=from server"}, open}, "cut the list"},
        {false, {first, open, {Response(-1, token), later}, closes}, ""},
        {false, {asked, {Response(1, token), later}, closes}, ""},  // no integrity, no proof
        {true, {asked, proves, open, proved, closes}, ""},
        {true, {asked, {Response(1, token + mic), "1=" + Response(0, reply + mic)}, closes}, ""},
        {true, {asked, proves, {Response(0, Mic(kKerberos)), refused + "="}, late, open}, "cut the list"},
        {true, {asked, proves, {Response(0, token), refused}, {Response(0, ""), refused}, open}, "not belong here"},
        {false, {asked, {Response(2, token), refused}, asks, late}, "gives up"},
        {false, {{Init(kKerberos, token), done}, {Response(1, token), refused}}, "does not belong here"},
        {false, {{Framed(Init(kNtlm, token)), refused}}, "The client offers NTLM and no Kerberos"},
        {false, {{std::string("NTLMSSP\0\1", 9), refused}}, "The client offers NTLM and no Kerberos"},
        {false, {{Init(Part(6, "?"), token), refused}}, "Kerberos is not among the mechanisms"},
        {false, {{Init("", token), refused}}, "cannot be read"},
        {false, {{Init(Part(4, "?") + kKerberos, token), refused}}, "cannot be read"},
        {false, {{Framed(Init(kKerberos, token)) + "x", "1=from server"}}, ""},  // the package's to refuse
        {false, {{Init(kKerberos, token + flags), refused}}, "cannot be read"},
        {false, {{Init(kKerberos, token + token), refused}}, "cannot be read"},
        {false, {{Init(kKerberos, Part(0xA2, Part(5, "t"))), refused}}, "cannot be read"},
        {false, {{Response(0, token), refused}}, "cannot be read"},
        {false, {{Init(kKerberos + Part(6, std::string(1024, 'x')), token), refused}}, "is too long"},
        {false, {{Init(kKerberos, token + Part(0xA3, Part(4, std::string(257, 'x')))), refused}}, "too long"},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        m_fake.m_nAttributes = test.m_bIntegrity ? ASC_RET_INTEGRITY : 0;
        const SSOSessionPtr pSession = Session();
        for (const auto& [input, output] : test.m_steps) {
            EXPECT_EQ(Step(false, pSession, input), output);
        }
        EXPECT_TRUE(m_trace.Said({test.m_says}));
    }
    // What the package says instead of a reply, such as a KRB-ERROR, goes inside.
    m_fake.Script("AcceptSecurityContext", {SEC_I_CONTINUE_NEEDED, "error"});
    EXPECT_EQ(Step(false, Session(), Init(kKerberos, token)), "1=" + Response(1, Chosen(kKerberos) + Token("error")));
}

TEST_F(NegotiationTest, StepsOfTheInitiatingSide) {
    const Chain chain({{u"SI_SERVER_SSPI_SPN", 1, u"http/server"}, {u"SSPI_NEGOTIATE", 3, u"1"}});
    const std::string first = "1=" + Framed(Init(kKerberos, Token("from client"))), token = Token("t");
    const std::string refused = "100/42254=", good = Response(0, Chosen(kMicrosoft) + token);
    const struct {
        std::string m_answer, m_result, m_afterwards, m_says;  // afterwards: to the good answer, on the same session
    } aCases[] = {
        {good, "0=", "", ""},
        {Response(1, token), "0=", "", ""},
        {Response(0, token + Mic(kKerberos)), "0=", "", ""},
        {Response(3, token + Mic(kKerberos)), "0=" + Response(0, Mic(kKerberos)), "", ""},
        {Response(3, token), refused, refused, "asks for a MIC of the mechanisms and sends none"},
        {Response(1, token + Mic(kNtlm)), refused, refused, "cut the list"},
        {Response(2, token), refused, refused, "rejects the logon all the same"},
        {Response(2, ""), refused, "0=", "rejects the negotiation and does not say why"},
        {Response(0, Chosen(kNtlm) + token), refused, "0=", "wants another mechanism"},
        {Response(1, Chosen(kKerberos)), refused, "0=", "holds no Kerberos token"},
        {Response(4, token), refused, "0=", "is no SPNEGO response"},
        {"raw", refused, "0=", "is no SPNEGO response"},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        const SSOSessionPtr pSession = m_pHandler->CreateSession(chain);
        EXPECT_EQ(Step(true, pSession, ""), first);
        EXPECT_EQ(Step(true, pSession, test.m_answer).substr(0, test.m_result.size()), test.m_result);
        EXPECT_TRUE(m_trace.Said({test.m_says}));
        EXPECT_TRUE(test.m_afterwards.empty() || Step(true, pSession, good).starts_with(test.m_afterwards));
    }
    EXPECT_NE(m_fake.Log("InitializeSecurityContextW").front().find("flags 65539"), std::string::npos);
    EXPECT_EQ(Thrown([] {
                  const Chain wrong({{u"SSPI_NEGOTIATE", 1, u"1"}});
                  return Harrowlib201::MakeCounted<KerberosSSPIHandler>()->CreateSession(wrong);
              }),
              "100/42038/SSPI_NEGOTIATE");
    EXPECT_TRUE(m_trace.Said({"p.m_eType == Parameter::Bool"}));
}

TEST_F(NegotiationTest, ChannelBindingsGoToThePackage) {
    constexpr const char16_t *kValue = u"SSPI_CHANNEL_BINDINGS", *kRule = u"SSPI_CHANNEL_BINDINGS_RULE";
    const std::string record = std::string(24, '\0') + std::string("\3\0\0\0\x20\0\0\0t:\xFA", 11);
    const std::string plain = "flags 2, drep 16, input [0:2:x]", bound = "drep 16, input [0:2:x:14:" + record + "]";
    const struct {
        const char16_t *m_pszValue, *m_pszRule;  // null: absent
        bool m_bGood;
        std::string m_call;  // how the package is called then
    } aCases[] = {
        {u"t:fA", nullptr, true, plain},
        {nullptr, u"check", true, "flags 268435458, " + bound},
        {u"t:", u"ignore", false, bound},
        {u"t:0", u"ignore", false, bound},
        {u"t:0g", u"ignore", false, bound},
        {u":00", u"ignore", false, bound},
        {u"t", u"ignore", false, bound},
        {u"t:00;null", u"ignore", false, bound},
        {nullptr, u"Require", false, bound},
        {u"", nullptr, false, bound},
        {nullptr, u"require", true, "flags 2, " + bound},
        {nullptr, u"ignore", true, plain},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(&test - aCases);
        Parameters settings;
        if (test.m_pszValue != nullptr) {
            settings.SetParameter(kValue, SString(test.m_pszValue));
        }
        if (test.m_pszRule != nullptr) {
            settings.SetParameter(kRule, SString(test.m_pszRule));
        }
        EXPECT_EQ(Thrown([&] { return m_pHandler->InitHandler(settings), 0; }), test.m_bGood ? "" : "100/42254");
        EXPECT_EQ(Step(false, Session(), "x"), "1=from server");
        EXPECT_NE(m_fake.Log("AcceptSecurityContext").back().find(test.m_call), std::string::npos)
            << m_fake.Log("AcceptSecurityContext").back();
    }
    const Chain chain({{u"SI_SERVER_SSPI_SPN", 1, u"http/server"}, {kValue, 1, u"t:fa"}});
    EXPECT_EQ(Step(true, m_pHandler->CreateSession(chain), ""), "1=from client");
    EXPECT_NE(m_fake.Log("InitializeSecurityContextW").back().find("input [0:14:" + record + "]"), std::string::npos);
    EXPECT_TRUE(m_trace.Said({"hexadecimal digits", "none of ignore, check and require", "none to compare them with"}));
}

TEST_F(NegotiationTest, TooLittleMemoryForAMicIsNoForgery) {
    m_fake.Script("VerifySignature", {SEC_E_INSUFFICIENT_MEMORY});
    EXPECT_EQ(Step(false, Session(), Init(kKerberos, Token("t") + Mic(kKerberos))), "106/42502=from server");
}

TEST_F(NegotiationTest, ALoginAtWorkIsNoWayRoundTheLimit) {
    SessionCache cache;
    const auto begin = [&] {
        auto pSession = cache.CreateSession(m_pHandler, nullptr);
        EXPECT_EQ(Step(false, pSession, Init(kKerberos, "")).substr(0, 2), "1=");
        cache.LimitAnybodys(pSession->GetIdentifier());
        return pSession;
    };
    const auto pBusy = begin();  // the call that has made it goes on
    for (int i = 0; i < 2050; ++i) {
        begin()->End();
        if (i == 1025) {
            EXPECT_TRUE(cache.GetSession(pBusy->GetIdentifier()));
            pBusy->End();
        }
    }
    EXPECT_FALSE(cache.GetSession(pBusy->GetIdentifier()));
}

}  // namespace
}  // namespace morwen
