// The fixture of every test that logs on.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include "fakes/TraceCapture.h"
#include "morwen/morwenplugin.h"
#include "realm/Login.h"
#include "realm/Realm.h"

namespace morwen {

// The package is started and keeps no contexts. Whatever a test does, a good logon works afterwards, no descriptor
// stays open, no login stays half done but those that the test counts, and no assertion fails but those that it asks
// for.
class PluginTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("MORWEN_REALM_DIR"), nullptr) << "scripts/realm must run this program";
        ASSERT_EQ(SSOInitPackage(), SSO_OK);
        SetCaching(u"0");
        m_nDescriptors = OpenDescriptors();
    }
    void TearDown() override {
        UseTickets("FILE:" + RealmPath("alice.cc"));
        UseKeytab("FILE:" + RealmPath("service.keytab"));
        EXPECT_EQ(LogOn().m_verdict, kLoggedOn);
        EXPECT_EQ(OpenDescriptors(), m_nDescriptors);
        EXPECT_EQ(SSOTermPackage(), SSO_OK);
        EXPECT_TRUE(m_trace.Said({"Shutting down with " + std::to_string(m_nHalfDone) + " partially formed sessions"}));
    }

    // What the logons of this test use from now on. No other thread may run meanwhile.
    static void UseTickets(const std::string& i_cache) { setenv("KRB5CCNAME", i_cache.c_str(), 1); }
    static void UseKeytab(const std::string& i_keytab) { setenv("KRB5_KTNAME", i_keytab.c_str(), 1); }

    static void SetCaching(const SSOChar* i_pszOn) {
        const ParasSeq parameters = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, i_pszOn, nullptr};
        ASSERT_EQ(SSOInitProvider(u"SSPI", &parameters), SSO_OK);
    }

    // A client's token; its login stays half done.
    LoginResult HalfLogin(const Client& i_client = {}) {
        LoginResult started = StartLogin(i_client);
        EXPECT_EQ(started.m_verdict, "1");
        ++m_nHalfDone;
        return started;
    }

    TraceCapture m_trace;
    size_t m_nHalfDone = 0;

private:
    static ptrdiff_t OpenDescriptors() {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    }

    ptrdiff_t m_nDescriptors = 0;
};

}  // namespace morwen
