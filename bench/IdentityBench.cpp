// Impersonate and revert, beside the system calls that no implementation can do without.
#include <grp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <numeric>
#include <vector>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"

namespace morwen::bench {

namespace {

constexpr uid_t kUser = 65534;
constexpr gid_t kGroup = 65534;
constexpr unsigned kSame = static_cast<unsigned>(-1);

using Groups = std::vector<gid_t>;

bool SetGroups(const Groups& i_groups) {
    return syscall(SYS_setgroups, i_groups.size(), i_groups.data()) == 0;
}

bool SwitchTo(const Groups& i_groups) {
    return SetGroups(i_groups) && syscall(SYS_setresgid, kSame, kGroup, kSame) == 0 &&
           syscall(SYS_setresuid, kSame, kUser, kSame) == 0;
}

bool SwitchBack(const Groups& i_groups) {
    return syscall(SYS_setresuid, kSame, 0, kSame) == 0 && syscall(SYS_setresgid, kSame, 0, kSame) == 0 &&
           SetGroups(i_groups);
}

Groups FirstGroups(size_t i_nCount) {
    Groups groups(i_nCount);
    std::iota(groups.begin(), groups.end(), gid_t{3000});
    return groups;
}

void RequireRoot() {
    Require(geteuid() == 0, "becoming other users needs root");
    // A process that becomes somebody else cannot be looked at by a profiler any more.
    prctl(PR_SET_DUMPABLE, 1);
}

void RunRaw(benchmark::State& io_state) {
    RequireRoot();
    const Groups user = FirstGroups(static_cast<size_t>(io_state.range(0)));
    Groups service(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    Require(getgroups(static_cast<int>(service.size()), service.data()) >= 0, "getgroups");
    for ([[maybe_unused]] auto _ : io_state) {
        Require(SwitchTo(user) && SwitchBack(service), "the raw calls");
    }
}

void Switch(benchmark::State& io_state, const SSOChar* i_pszKey) {
    for ([[maybe_unused]] auto _ : io_state) {
        Require(SSOImpersonate(i_pszKey) == SSO_OK && SSORevert(i_pszKey) == SSO_OK, "impersonate and revert");
    }
    Require(SSOReleaseSecurityContext(i_pszKey) == SSO_OK, "SSOReleaseSecurityContext");
}

// The user's identity is captured from a thread that has it: no account of the machine is in 64 groups.
void RunCaptured(benchmark::State& io_state) {
    RequireRoot();
    Output output;
    Groups service(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    Require(getgroups(static_cast<int>(service.size()), service.data()) >= 0, "getgroups");
    Require(SwitchTo(FirstGroups(static_cast<size_t>(io_state.range(0)))), "the raw calls");
    const uint32_t nCode = SSOAcquireCurrentSecurityContext(u"" SSO_PROVIDER_THREADTOKEN, nullptr, &output.m_pszKey);
    Require(SwitchBack(service) && nCode == SSO_OK, "SSOAcquireCurrentSecurityContext");
    Switch(io_state, output.m_pszKey);
}

void RunLoggedOn(benchmark::State& io_state) {
    RequireRoot();
    Output context;
    ExportLogon({}).Keep(context);
    Switch(io_state, context.m_pszKey);
}

}  // namespace

void RegisterIdentities() {
    Register("identity/raw", RunRaw)->Arg(0)->Arg(1)->Arg(3)->Arg(64);
    Register("identity/exports", RunCaptured)->Arg(0)->Arg(3)->Arg(64);
    Register("identity/logged-on", RunLoggedOn)->Arg(1);  // "nobody" is in one group
}

}  // namespace morwen::bench
