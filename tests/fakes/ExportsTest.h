// The fixture of the tests that call the exports on the fake platform.
#pragma once

#include "fakes/PlatformTest.h"

namespace morwen {

using Key = std::u16string;

class ExportsTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        EXPECT_EQ(SSOInitPackage(), 0U);
        SetCaching(false);
    }
    void TearDown() override {
        EXPECT_EQ(SSOTermPackage(), 0U);
        PlatformTest::TearDown();
    }

    static void SetCaching(bool i_bOn) {
        EXPECT_EQ(SSOInitProvider(Host(u"SSPI"), Chain({{u"SI_CACHE_SECCONTEXT", 3, i_bOn ? u"1" : u"0"}})), 0U);
    }

    // What the host holds after a call; given back at its end.
    struct Outputs {
        ~Outputs() {
            SSOFreeBuffer(m_pvBuffer);
            SSOFreeString(m_pszKey);
            SSOFreeParameters(m_pInformation);
        }
        // The code, the key ("#" for that of a session or a context, which goes to o_key) and the token.
        std::string Result(uint32_t i_nCode, Key& o_key) const {
            std::string key = Utf8(m_pszKey);
            if (i_nCode <= SSO_ACCEPTED && !key.empty() && key.find_first_not_of("0123456789") == std::string::npos) {
                o_key.assign(m_pszKey, m_pszKey + key.size());
                key = "#";
            }
            EXPECT_EQ(m_pvBuffer == nullptr, m_nLength == 0);
            const auto* pText = static_cast<const char*>(m_pvBuffer);
            return std::to_string(i_nCode) + "|" + key + "|" + std::string(pText, pText + m_nLength);
        }
        uint32_t Start(const ParasSeq* i_pParameters = SpnChain()) {
            return SSOStartLogin(nullptr, nullptr, Host(u"SSPI"), i_pParameters, &m_pszKey, &m_pvBuffer, &m_nLength);
        }
        void* m_pvBuffer = nullptr;
        SSOLength m_nLength = 0;
        SSOChar* m_pszKey = nullptr;
        ParasSeq* m_pInformation = nullptr;
    };
    static std::string Start(Key& o_key, const ParasSeq* i_pParameters = SpnChain()) {
        Outputs out;
        return out.Result(out.Start(i_pParameters), o_key);
    }
    static std::string Continue(Key i_key, const std::string& i_token) {
        Outputs out;
        return out.Result(SSOContinueLogin(Host(i_key.c_str()), i_token.data(), static_cast<SSOLength>(i_token.size()),
                                           &out.m_pvBuffer, &out.m_nLength),
                          i_key);
    }
    static std::string Accept(Key& io_key, const std::string& i_token, bool i_bInformation = false) {
        Outputs out;
        const void* pvToken = i_token.empty() ? nullptr : i_token.data();
        const std::string result =
            out.Result(SSOAcceptLogin(Host(u"SSPI"), Host(io_key.c_str()), pvToken,
                                      static_cast<SSOLength>(i_token.size()), &out.m_pvBuffer, &out.m_nLength,
                                      i_bInformation ? &out.m_pInformation : nullptr, &out.m_pszKey),
                       io_key);
        return result + (out.m_pInformation != nullptr ? "|" + Utf8(out.m_pInformation->next->value) : "");
    }
    // The calling thread's record, "none" if there is none.
    static std::string Record() {
        SSOError* pError = nullptr;
        const bool bFound = SSOGetError(SSO_ERROR, &pError) == SSO_OK;
        EXPECT_EQ(bFound, pError != nullptr);
        std::string text = bFound ? std::to_string(pError->errCode) + "/" + std::to_string(pError->messageId) : "none";
        SSOFreeError(pError);
        return text;
    }
    // Impersonates and reverts: both results, and "here" between them if this thread was somebody else.
    std::string Switch(const Key& i_key) {
        std::string text = std::to_string(SSOImpersonate(Host(i_key.c_str())));
        text += m_fake.IsImpersonating() ? " here " : " ";
        return text + std::to_string(SSORevert(Host(i_key.c_str())));
    }
    testing::AssertionResult SessionsLeft(const std::string& i_count) {
        EXPECT_EQ(SSOTermPackage(), 0U);
        EXPECT_EQ(SSOInitPackage(), 0U);
        return m_trace.Said(
            {"SessionCache::~SessionCache() -- Shutting down with " + i_count + " partially formed sess"});
    }
};

}  // namespace morwen
