// The private realm that the tests run in, and how they change it.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace morwen {

// A path in the realm's folder, which goes away with the realm.
inline std::string RealmPath(const std::string& i_name) {
    const char* const pszFolder = std::getenv("MORWEN_REALM_DIR");
    return std::string(pszFolder != nullptr ? pszFolder : "") + "/" + i_name;
}

inline void WriteFile(const std::string& i_name, const std::string& i_content) {
    std::ofstream(RealmPath(i_name), std::ios::binary) << i_content;
}

// Runs a shell's command line, which must succeed within 20 seconds; else the test fails and shows what was said.
inline void RunCommand(const std::string& i_command) {
    std::string words[] = {"timeout", "20", "sh", "-c", "exec >$MORWEN_REALM_DIR/output 2>&1; " + i_command};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                               words[3].data(), words[4].data(), nullptr};
    pid_t nProcess = 0;
    int nStatus = 0;
    ASSERT_EQ(posix_spawnp(&nProcess, arguments[0], nullptr, nullptr, arguments, environ), 0);
    EXPECT_EQ(waitpid(nProcess, &nStatus, 0), nProcess);
    EXPECT_EQ(nStatus, 0) << i_command << " says: " << std::ifstream(RealmPath("output")).rdbuf();
}

// One command of the realm's administrator, such as "addprinc -randkey svc/localhost".
inline void Kadmin(const std::string& i_command) {
    RunCommand("kadmin.local -r MORWEN.TEST " + i_command);
}

// Makes a service and puts its key, as it is then, into a keytab, whose full name is returned.
inline std::string AddService(const std::string& i_principal, const std::string& i_keytab) {
    Kadmin("addprinc -randkey " + i_principal);
    Kadmin("ktadd -norandkey -k " + RealmPath(i_keytab) + " " + i_principal);
    return "FILE:" + RealmPath(i_keytab);
}

// Gets a ticket with the password "NAME-secret" into a cache, whose full name is returned.
inline std::string Kinit(const std::string& i_user, const std::string& i_cache, const std::string& i_options = {}) {
    std::string cache = "FILE:" + RealmPath(i_cache);
    RunCommand("echo " + i_user + "-secret | kinit " + i_options + " -c " + cache + " " + i_user);
    return cache;
}

}  // namespace morwen
