// The fixture of the tests that act as users who have logged on.
#pragma once

#include <sys/prctl.h>
#include <sys/syscall.h>

#include <map>

#include "realm/PluginTest.h"

namespace morwen {

// What the kernel says of the calling thread under "Uid" and "Gid" (real, effective, saved, for files), "Groups" and
// the five sets of capabilities.
using ThreadState = std::map<std::string, std::string>;

inline ThreadState CurrentThreadState() {
    ThreadState state;
    std::ifstream file("/proc/thread-self/status");
    for (std::string name, value; std::getline(file, name, ':') && std::getline(file, value);) {
        if (name == "Uid" || name == "Gid" || name == "Groups" || name.starts_with("Cap")) {
            state[name] = value;
        }
    }
    EXPECT_EQ(state.size(), 8U);
    return state;
}

// Of a service's thread while it acts as the user. The groups as the kernel shows them; empty: the one with the user's
// number.
inline ThreadState StateOf(ThreadState i_service, uid_t i_nUser, const std::string& i_groups = {}) {
    if (i_nUser != getuid()) {
        const std::string user = std::to_string(i_nUser);
        for (const char* pszIds : {"Uid", "Gid"}) {
            const std::string real = i_service[pszIds].substr(0, i_service[pszIds].find('\t', 1));
            i_service[pszIds] = real + "\t" + user + real + "\t" + user;
        }
        i_service["Groups"] = "\t" + (i_groups.empty() ? user + " " : i_groups);
    }
    for (const char* pszNotHandedOn : {"CapEff", "CapInh", "CapAmb"}) {
        i_service[pszNotHandedOn] = i_nUser != 0 ? "\t0000000000000000" : i_service[pszNotHandedOn];
    }
    return i_service;
}

inline std::string VerdictOf(uint32_t i_nCode) {
    return std::to_string(i_nCode) + (i_nCode >= SSO_DENIED ? TakenRecord(i_nCode) : "");
}

// Watches the thread that made it, which is the service at that time. No call may succeed unless the thread is then
// whom it promises, with no capability in effect or to hand on and its real and saved ids as they were; and none that
// fails may change the thread. Each gives the code; of a failure "code/message".
class ActingThread {
public:
    std::string Impersonate(const std::string& i_key, uid_t i_nUser, const std::string& i_groups = {}) {
        const uint32_t nCode = SSOImpersonate(Wide(i_key).c_str());
        if (nCode == SSO_OK) {
            m_expected = StateOf(m_service, i_nUser, i_groups);
        }
        ExpectUnchanged();
        return VerdictOf(nCode);
    }
    std::string Revert(const std::string& i_key) {
        const uint32_t nCode = SSORevert(Wide(i_key).c_str());
        m_expected = nCode == SSO_OK ? m_service : m_expected;
        ExpectUnchanged();
        return VerdictOf(nCode);
    }
    void ExpectUnchanged() const { EXPECT_EQ(CurrentThreadState(), m_expected); }

private:
    const ThreadState m_service = CurrentThreadState();
    ThreadState m_expected = m_service;
};

// Keeps the identity of the calling thread, and gives the key.
inline std::string CaptureThread() {
    SSOChar* pszKey = nullptr;
    const uint32_t nCode = SSOAcquireCurrentSecurityContext(u"" SSO_PROVIDER_THREADTOKEN, nullptr, &pszKey);
    const std::string key = Narrow(pszKey);
    SSOFreeString(pszKey);
    return nCode == SSO_OK ? key : VerdictOf(nCode);
}

// Contexts are kept. Each of the users is an account that every Debian has, with a group of the same number. The
// realm's folder is open to all of them: what a test finds refused there is refused by something else.
class KeptContextTest : public PluginTest {
protected:
    static constexpr std::pair<const char*, uid_t> kUsers[] = {
        {"alice", 65534}, {"daemon", 1}, {"bin", 2}, {"sys", 3}, {"mail", 8}, {"news", 9}, {"uucp", 10}, {"proxy", 13}};
    static constexpr const char* kAliceSid = "S-1-22-1-65534";

    static void SetUpTestSuite() {
        if (getuid() != 0) {
            return;
        }
        static const bool s_bOnce = [] {
            for (const auto& [pszUser, nUser] : std::span(kUsers).subspan(1)) {
                Kadmin(std::string("addprinc -pw ") + pszUser + "-secret " + pszUser);
            }
            RunCommand("chmod 1777 $MORWEN_REALM_DIR");
            return true;
        }();
        ASSERT_TRUE(s_bOnce);
    }
    void SetUp() override {
        PluginTest::SetUp();
        SetCaching(u"1");
        // The service is in a group that no user is in; threads made from now on too.
        constexpr gid_t kAdm = 4;
        if (getenv("MORWEN_AS_NOBODY") == nullptr && syscall(SYS_setgroups, 1, &kAdm) != 0) {
            GTEST_SKIP() << "becoming other users needs root";
        }
    }
    void TearDown() override {
        prctl(PR_SET_DUMPABLE, 1);  // the kernel has taken it away, and the sanitizers look at the process at its end
        PluginTest::TearDown();
    }

    static Client PasswordOf(const std::string& i_user) { return {"MORWEN\\" + i_user, i_user + "-secret"}; }

    // Logs on, and gives the key of the kept context.
    static std::string KeptLogin(const Client& i_client = {}, Information i_eInformation = Information::Wanted) {
        const LoginResult login = LogOn(i_client, i_eInformation);
        EXPECT_EQ(login.m_verdict, kLoggedOn) << i_client.m_user;
        EXPECT_EQ(SSOLookupSecurityContext(Wide(login.m_key).c_str()), SSO_OK);
        return login.m_key;
    }
};

}  // namespace morwen
