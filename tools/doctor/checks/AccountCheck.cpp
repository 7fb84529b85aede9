// Server: the user's local account, and the right to act as that account.
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>

#include "platform/linux/logon/LocalName.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

constexpr unsigned kSetGid = 6;  // CAP_SETGID
constexpr unsigned kSetUid = 7;  // CAP_SETUID

uint64_t EffectiveCapabilities() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "CapEff:") {
            uint64_t nSet = 0;
            status >> std::hex >> nSet;
            return nSet;
        }
    }
    return 0;
}

std::optional<uid_t> AccountOf(Case& io_case, const std::string& i_user) {
    const krb5_context context = io_case.Context();
    Report& report = io_case.m_report;
    Krb5Principal principal(context);
    std::string name;
    krb5_error_code nCode = krb5_parse_name(context, i_user.c_str(), principal.Receive());
    if (nCode == 0) {
        nCode = LocalName(context, principal.get(), name);
    }
    const std::string user = nCode == 0 ? PrincipalText(context, principal.get()) : i_user;
    const std::string lookedAt = "the local account of " + user;
    if (nCode != 0) {
        report.Fail("account-unmapped", lookedAt, io_case.Words(nCode),
                    "write a rule that names the realm to [realms] of the default realm: auth_to_local = "
                    "RULE:[1:$1@$0](.*@EXAMPLE[.]ORG)s/@.*// and after it auth_to_local = DEFAULT "
                    "(auth_to_local_names is for users of the default realm alone)");
        return std::nullopt;
    }
    errno = 0;
    const passwd* const pRecord = getpwnam(name.c_str());
    if (pRecord == nullptr) {
        report.Fail("account-missing", lookedAt,
                    name + " is no account here" +
                        (errno != 0 && errno != ENOENT ? std::string(": ") + std::strerror(errno) : ""),
                    "getent passwd " + Quoted(name) +
                        " must answer: useradd, join the directory (sssd), or another auth_to_local rule" +
                        (io_case.m_options.m_bImpersonate
                             ? ""
                             : "; a logon alone needs no account where a directory's tickets say who the user is"));
        return std::nullopt;
    }
    const uid_t nUser = pRecord->pw_uid;
    const std::string found = name + " (uid " + std::to_string(nUser) + ")";
    if (nUser == 0 && io_case.m_options.m_bImpersonate) {
        report.Fail("account-root", lookedAt, found, "use a user who is not root");
        return std::nullopt;
    }
    report.Ok("account", lookedAt, found);
    return nUser;
}

}  // namespace

void CheckAccount(Case& io_case) {
    const std::string& user = io_case.m_options.m_user;
    std::optional<uid_t> account;
    if (user.empty()) {
        io_case.m_report.Skip("account", "the local account of a user", "no user was given (--user)");
    } else {
        account = AccountOf(io_case, user);
    }
    const std::string lookedAt = "the right to act as users, of " + ThisAccount();
    const uint64_t nHas = EffectiveCapabilities();
    const bool bMay = (nHas >> kSetGid & 1U) != 0 && (nHas >> kSetUid & 1U) != 0;
    if (bMay || (account && *account == geteuid())) {
        const bool bGiven = bMay && !io_case.m_options.m_account.empty();
        io_case.m_report.Ok(
            "privilege", lookedAt,
            bGiven ? "it may, if the unit gives what this check did: AmbientCapabilities=CAP_SETUID CAP_SETGID"
            : bMay ? "it may"
                   : "the user is this account itself");
    } else if (!io_case.m_options.m_bImpersonate) {
        io_case.m_report.Skip("privilege", lookedAt, "it may not, nor was it asked for (--impersonate)");
    } else {
        io_case.m_report.Fail(
            "impersonation-privilege", lookedAt, "CAP_SETUID and CAP_SETGID are not effective",
            "in the systemd unit: AmbientCapabilities=CAP_SETUID CAP_SETGID and "
            "CapabilityBoundingSet=CAP_SETUID CAP_SETGID; or setcap cap_setuid,cap_setgid+ep PROGRAM");
    }
}

}  // namespace morwen::doctor
