// Does the service's view of the configuration keep the replay cache with the service, and say what it must on KDCs?
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "platform/linux/contexts/ReplayCache.h"
#include "platform/linux/contexts/ServiceProfile.h"

namespace morwen {
namespace {

class ServiceProfileTest : public testing::Test {
protected:
    ServiceProfileTest() {
        std::string folder = (std::filesystem::temp_directory_path() / "profileXXXXXX").string();
        m_folder = mkdtemp(folder.data());
        setenv("KRB5_CONFIG", (m_folder / "krb5.conf").c_str(), 1);
        setenv("KRB5RCACHEDIR", m_folder.c_str(), 1);
    }
    ~ServiceProfileTest() override {
        Close();
        unsetenv("KRB5_CONFIG");
        unsetenv("KRB5RCACHEDIR");
        std::filesystem::remove_all(m_folder);
    }

    void Open(const std::string& i_configuration) {
        Close();
        std::ofstream(m_folder / "krb5.conf") << i_configuration;
        ASSERT_EQ(ServiceProfile::Open(OwnReplayCache(), m_profile, m_pHook), 0);
    }
    void Close() {
        if (m_profile != nullptr) {
            profile_release(std::exchange(m_profile, nullptr));
        }
    }
    std::string Get(std::vector<const char*> i_names) {
        i_names.push_back(nullptr);
        char** ppszValues = nullptr;
        if (profile_get_values(m_profile, i_names.data(), &ppszValues) != 0) {
            return "(none)";
        }
        std::string all;
        for (char** ppszValue = ppszValues; *ppszValue != nullptr; ++ppszValue) {
            all.append(all.empty() ? "" : " ").append(*ppszValue);
        }
        profile_free_list(ppszValues);
        return all;
    }
    std::string ReplayCache() { return Get({"libdefaults", "default_rcache_name"}); }
    static std::string Chosen() {
        SystemProfile system;
        EXPECT_EQ(system.Open(), 0);
        return ChosenReplayCache(system);
    }

    std::filesystem::path m_folder;
    profile_t m_profile = nullptr;
    KdcHook* m_pHook = nullptr;
};

TEST_F(ServiceProfileTest, AConfigurationIsMarkedByItsDateAndSize) {
    std::set<uint64_t> marks;
    const auto isNew = [&](const char* i_pszText, time_t i_nSeconds, long i_nNanoseconds) {
        std::ofstream(m_folder / "krb5.conf") << i_pszText;
        const timespec aTimes[] = {{0, 0}, {i_nSeconds, i_nNanoseconds}};
        EXPECT_EQ(utimensat(AT_FDCWD, (m_folder / "krb5.conf").c_str(), aTimes, 0), 0);
        return marks.insert(ConfigurationMark()).second;
    };
    EXPECT_TRUE(isNew("a", 5, 5) && isNew("b", 5, 6) && isNew("b", 6, 6) && isNew("bc", 6, 6));
    EXPECT_FALSE(isNew("b", 5, 6));
}

TEST_F(ServiceProfileTest, ReplayCacheBelongsToTheService) {
    const auto file = m_folder / ("krb5_" + std::to_string(geteuid()) + ".rcache2");
    Open("[libdefaults]\n default_realm = R\n");
    EXPECT_EQ(ReplayCache(), "file2:" + file.string());
    EXPECT_EQ(Get({"libdefaults", "default_realm"}), "R");
    Open("[libdefaults]\n default_rcache_name = file2:/elsewhere\n");
    EXPECT_EQ(ReplayCache(), "file2:/elsewhere") << "the administrator's own word wins";
    EXPECT_EQ(Chosen(), "file2:/elsewhere");
    setenv("KRB5RCACHETYPE", "none", 1);
    EXPECT_EQ(Chosen(), "none");
    unsetenv("KRB5RCACHETYPE");

    std::filesystem::rename(file, m_folder / "target");
    std::filesystem::create_symlink(m_folder / "target", file);
    Open("");
    EXPECT_EQ(ReplayCache(), "(none)") << "a link is not followed";
    EXPECT_EQ(Chosen(), "");
}

TEST_F(ServiceProfileTest, OldCiphersArePermittedByTheAdministratorOnly) {
    for (const auto& [pszSetting, pszPermitted] :
         {std::pair("", "DEFAULT -rc4 -des3"), std::pair("allow_rc4 = true", "DEFAULT -des3"),
          std::pair("allow_weak_crypto = true", "DEFAULT"), std::pair("permitted_enctypes = rc4", "rc4")}) {
        Open(std::string("[libdefaults]\n ") + pszSetting + "\n");
        EXPECT_EQ(Get({"libdefaults", "permitted_enctypes"}), pszPermitted) << pszSetting;
    }
}

TEST_F(ServiceProfileTest, KdcsAreToldOnceAndTheOneThatAnsweredIsNotAskedAgain) {
    Open(
        "[libdefaults]\n dns_lookup_kdc = false\n[realms]\n R = {\n  kdc = a\n  kdc = b:89\n  master_kdc = b:89\n }\n");
    EXPECT_EQ(Get({"realms", "R", "kdc"}), "a b:89");
    EXPECT_TRUE(m_pHook->TakeToldKdcs("OTHER").m_kdcs.empty());
    EXPECT_EQ(Get({"realms", "R", "kdc"}), "a b:89");
    EXPECT_EQ(m_pHook->TakeToldKdcs("R").m_kdcs.size(), 2U);
    EXPECT_TRUE(m_pHook->TakeToldKdcs("R").m_kdcs.empty()) << "told by somebody else since";
    EXPECT_EQ(Get({"realms", "OTHER", "kdc"}), "(none)");

    for (const auto& [pszAnsweredBy, pszPrimary] : {std::pair("a:88", "b:89"), std::pair("b:89", "(none)")}) {
        Get({"realms", "R", "kdc"});
        m_pHook->NoteAnswer(pszAnsweredBy);
        EXPECT_EQ(Get({"realms", "R", "primary_kdc"}), "(none)");
        EXPECT_EQ(Get({"realms", "R", "master_kdc"}), pszPrimary) << pszAnsweredBy;
    }
}

}  // namespace
}  // namespace morwen
