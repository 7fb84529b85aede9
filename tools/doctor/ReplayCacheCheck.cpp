// Server: the file in which the tokens that were seen are noted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "tools/doctor/Checks.h"

namespace morwen::doctor {

namespace {

// The administrator's own choice; empty: the usual file.
std::string Chosen(const Case& i_case) {
    for (const char* const pszName : {"KRB5RCACHENAME", "KRB5RCACHETYPE"}) {
        if (const char* const pszValue = secure_getenv(pszName)) {
            return pszValue;
        }
    }
    char* pszValue = nullptr;
    std::string value;
    if (profile_get_string(i_case.m_pProfile.get(), "libdefaults", "default_rcache_name", nullptr, "", &pszValue) ==
        0) {
        value = pszValue;
        profile_release_string(pszValue);
    }
    return value;
}

void CheckFile(Case& io_case, const std::string& i_folder, const std::string& i_path) {
    Report& report = io_case.m_report;
    const std::string lookedAt = "the replay cache " + i_path + ", as " + ThisAccount();
    const std::string path = Quoted(i_path);
    struct stat status {};
    const bool bThere = lstat(i_path.c_str(), &status) == 0;
    // Nothing is made or changed here: run by another account than the service's, that would do harm.
    const bool bMay = bThere ? eaccess(i_path.c_str(), R_OK | W_OK) == 0
                             : errno == ENOENT && eaccess(i_folder.c_str(), W_OK | X_OK) == 0;
    const int nError = errno;
    if (bThere && (!S_ISREG(status.st_mode) || status.st_uid != geteuid())) {
        report.Fail("replay-cache-owner", lookedAt,
                    S_ISREG(status.st_mode) ? "it belongs to uid " + std::to_string(status.st_uid)
                                            : std::string("it is no regular file"),
                    "rm " + path + " (it is made anew)");
    } else if (!bMay) {
        report.Fail("replay-cache-unwritable", lookedAt, std::generic_category().message(nError),
                    "let the service write to a folder of its own: KRB5RCACHEDIR=/run/myservice with systemd's "
                    "RuntimeDirectory=myservice, or chmod 1777 " +
                        Quoted(i_folder));
    } else {
        report.Ok("replay-cache", lookedAt, bThere ? "it can be written" : "it will be made");
    }
}

}  // namespace

void CheckReplayCache(Case& io_case) {
    std::string chosen = Chosen(io_case);
    if (chosen.starts_with("none")) {
        io_case.m_report.Warn("replay-cache-off", "the replay cache", "it is switched off: " + chosen,
                              "unset KRB5RCACHENAME and KRB5RCACHETYPE, and remove default_rcache_name from "
                              "[libdefaults]");
        return;
    }
    if (chosen.starts_with("file2:")) {
        chosen = chosen.substr(6);
        CheckFile(io_case, chosen.substr(0, chosen.rfind('/') + 1), chosen);
        return;
    }
    const char* pszFolder = secure_getenv("KRB5RCACHEDIR");
    if (pszFolder == nullptr) {
        pszFolder = secure_getenv("TMPDIR");
    }
    const std::string folder = pszFolder != nullptr ? pszFolder : "/var/tmp";
    CheckFile(io_case, folder, folder + "/krb5_" + std::to_string(geteuid()) + ".rcache2");
}

}  // namespace morwen::doctor
