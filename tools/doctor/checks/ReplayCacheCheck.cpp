// Server: the file in which the tokens that were seen are noted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/linux/contexts/ReplayCache.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

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
                    "rm " + path + " (the next logon makes it again)");
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
    std::string chosen = ChosenReplayCache(io_case.m_system);
    if (chosen.starts_with("none")) {
        io_case.m_report.Warn("replay-cache-off", "the replay cache", "it is switched off: " + chosen,
                              "unset KRB5RCACHENAME and KRB5RCACHETYPE, and remove default_rcache_name from "
                              "[libdefaults]");
        return;
    }
    if (chosen.starts_with("file2:")) {
        chosen = chosen.substr(6);
        const size_t nFolder = chosen.rfind('/') + 1;
        CheckFile(io_case, nFolder != 0 ? chosen.substr(0, nFolder) : ".", chosen);
        return;
    }
    const ReplayCacheFile file(geteuid());
    CheckFile(io_case, file.m_folder, file.m_path);
}

}  // namespace morwen::doctor
