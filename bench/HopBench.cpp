// Logons to another service in a user's name, where the KDC allows it: in the realm of a directory alone.
#include <sys/prctl.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"

namespace morwen::bench {

namespace {

// A thread that acts as a user who has logged on to the first service, with nothing delegated.
class ActingUser {
public:
    ActingUser() {
        ExportLogon({.m_service = "front/localhost"}).Keep(m_context);
        Require(SSOImpersonate(m_context.m_pszKey) == SSO_OK, "SSOImpersonate");
    }
    ~ActingUser() {
        SSORevert(m_context.m_pszKey);
        SSOReleaseSecurityContext(m_context.m_pszKey);
        prctl(PR_SET_DUMPABLE, 1);
    }
    ActingUser(const ActingUser&) = delete;
    ActingUser& operator=(const ActingUser&) = delete;

private:
    Output m_context;
};

void RunAgain(benchmark::State& io_state, bool i_bActs, const std::string& i_service) {
    std::optional<ActingUser> user;
    if (i_bActs) {
        user.emplace();
    }
    const ExportLogon logon({.m_service = i_service});
    logon.Run();
    for ([[maybe_unused]] auto _ : io_state) {
        logon.Run();
    }
}

// What the KDC has given goes with the last context of the user's ticket.
void RunFirst(benchmark::State& io_state) {
    const ExportLogon logon({.m_service = "morwen/localhost"});
    for ([[maybe_unused]] auto _ : io_state) {
        io_state.PauseTiming();
        {
            const ActingUser user;
            io_state.ResumeTiming();
            logon.Run();
            io_state.PauseTiming();
        }
        io_state.ResumeTiming();
    }
}

}  // namespace

void RegisterHops() {
    const char* const pszRealm = std::getenv("MORWEN_REALM_DIR");
    const std::string keytab = std::string(pszRealm != nullptr ? pszRealm : "") + "/front.keytab";
    if (!std::filesystem::exists(keytab)) {
        return;
    }
    setenv("KRB5_KTNAME", keytab.c_str(), 1);
    const std::string backEnd = "morwen/localhost";
    Register("hop/plain-logon", [=](benchmark::State& io_state) { RunAgain(io_state, false, backEnd); });
    Register("hop/again", [=](benchmark::State& io_state) { RunAgain(io_state, true, backEnd); });
    Register("hop/first", RunFirst);
}

}  // namespace morwen::bench
