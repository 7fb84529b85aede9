// The fixture of every test that works on the fake platform, and how tests write down outcomes.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "errors/SSOException.h"
#include "fakes/FakePlatform.h"
#include "fakes/TraceCapture.h"
#include "handlers/StaticToken.h"
#include "handlers/factory/SSOHandlerFactory.h"
#include "harrow/text/SWCharStringConv.h"
#include "morwen/morwenplugin.h"

namespace morwen {

inline std::string Utf8(const SWCharString& i_ssText) {
    return Harrowlib201::SWCharStringConv::ToUtf8(i_ssText.view());
}

// What an operation throws, as "code/message" and "/text" for each substitution; "" when it throws nothing.
template <class Operation>
std::string Thrown(Operation i_operation) {
    try {
        static_cast<void>(i_operation());
        return "";
    } catch (const SSOException& exception) {
        std::string text = std::to_string(exception.GetCode()) + "/" + std::to_string(exception.GetMessageId());
        for (const SWCharString& ssText : exception.GetSubstitutions()) {
            text += "/" + Utf8(ssText);
        }
        return text;
    }
}

// Ends with nothing alive on the fake, no thread impersonating, and no assertion that the test did not ask for.
class PlatformTest : public testing::Test {
protected:
    void SetUp() override { Platform::Install(m_fake.Calls()); }
    void TearDown() override {
        SSOHandlerFactory::instance()->ReleaseHandlers();
        Platform::Install({});
        EXPECT_EQ(m_fake.Faults(), "");
        EXPECT_TRUE(m_trace.Said({}));
    }

    using CallAnswers = std::vector<std::pair<const char*, FakeAnswer>>;
    void Script(const CallAnswers& i_answers) {
        for (const auto& [pszCall, answer] : i_answers) {
            m_fake.Script(pszCall, answer);
        }
    }
    // Impersonates for each "i" and reverts for each "r": what it threw, the count afterwards, and "acts" if the thread
    // is then somebody else.
    std::string Switch(const StaticTokenPtr& i_pToken, const std::string& i_steps, const CallAnswers& i_answers = {}) {
        Script(i_answers);
        std::string text;
        for (const char cStep : i_steps) {
            text += Thrown([&] { return cStep == 'i' ? i_pToken->Impersonate() : i_pToken->Revert(), 0; });
            text += " " + std::to_string(i_pToken->GetImpersonationCount());
            text += m_fake.IsImpersonating() ? " acts" : "";
        }
        return text;
    }

    FakePlatform m_fake;
    TraceCapture m_trace;
};

// A literal in the host's units.
inline const SSOChar* Host(const char16_t* i_pszText) {
    return reinterpret_cast<const SSOChar*>(i_pszText);
}
inline std::string Utf8(const SSOChar* i_pszText) {
    return i_pszText == nullptr ? "null" : Utf8(SWCharString::FromUnits(i_pszText));
}

// A chain as a host writes it, in the order given.
class Chain {
public:
    struct Element {
        const char16_t* m_pszKey;
        uint32_t m_nType;
        const char16_t* m_pszValue;
    };
    explicit Chain(const std::vector<Element>& i_elements) {
        m_elements.reserve(i_elements.size());
        for (const Element& element : i_elements) {
            m_elements.push_back({Host(element.m_pszKey), element.m_nType, Host(element.m_pszValue), nullptr});
            if (m_elements.size() > 1) {
                m_elements[m_elements.size() - 2].next = &m_elements.back();
            }
        }
    }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;
    operator const ParasSeq*() const { return m_elements.empty() ? nullptr : m_elements.data(); }

private:
    std::vector<ParasSeq> m_elements;
};

// What a client's login needs.
inline const Chain& SpnChain() {
    static const Chain s_chain({{u"SI_SERVER_SSPI_SPN", SSO_PARAMETER_STRING, u"http/server"}});
    return s_chain;
}

}  // namespace morwen
