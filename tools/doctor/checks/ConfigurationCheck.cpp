// The configuration's files and the default realm.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "platform/linux/contexts/ServiceProfile.h"
#include "platform/linux/keys/DefaultCache.h"
#include "tools/doctor/case/SyntaxFault.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

constexpr const char* kSample =
    R"(write [libdefaults] default_realm = EXAMPLE.ORG and [realms] EXAMPLE.ORG = { kdc = kdc.example.org } to it)";

std::string ListOfFiles() {
    const char* const pszConfigured = secure_getenv("KRB5_CONFIG");
    return pszConfigured != nullptr ? pszConfigured : "/etc/krb5.conf";
}

std::vector<std::string> Files() {
    std::vector<std::string> files;
    std::istringstream list(ListOfFiles());
    for (std::string file; std::getline(list, file, ':');) {
        if (!file.starts_with("FILE")) {  // the kind before the colon
            files.push_back(file);
        }
    }
    return files;
}

// True when one of the files can be read.
bool LookAtFiles(Report& io_report) {
    const std::string list = ListOfFiles();
    std::string refused;
    for (const std::string& file : Files()) {
        if (eaccess(file.c_str(), R_OK) == 0) {
            return true;
        }
        if (errno != ENOENT && errno != ENOTDIR) {
            refused = file + ": " + std::generic_category().message(errno);
        }
    }
    if (refused.empty()) {
        io_report.Fail("config-missing", "the configuration " + list, "there is no such file",
                       std::string(kSample) + ", or unset KRB5_CONFIG if it names the wrong file");
    } else {
        io_report.Fail("config-unreadable", "the configuration, as " + ThisAccount(), refused,
                       "chmod a+r " + Quoted(refused.substr(0, refused.find(": "))));
    }
    return false;
}

// A default cache that the library does not take is opened by no check: somebody else may have put a pipe there, which
// would keep whoever reads it waiting, or tickets with which the checks would ask another realm.
void SetPlantedCacheAside(Case& io_case) {
    const char* const pszName = NamedCache() == nullptr ? krb5_cc_default_name(io_case.Context()) : nullptr;
    io_case.m_cacheFault = pszName != nullptr ? FaultOfDefaultCache(pszName) : "";
    if (!io_case.m_cacheFault.empty()) {
        io_case.m_plantedCache = pszName;
        krb5_cc_set_default_name(io_case.Context(), "MEMORY:morwen-doctor-none");
    }
}

}  // namespace

void CheckConfiguration(Case& io_case) {
    if (!LookAtFiles(io_case.m_report)) {
        return;
    }
    krb5_context context = nullptr;
    krb5_error_code nCode = io_case.m_system.Open();
    if (nCode == 0) {
        // No replay cache: nothing is made or changed here.
        nCode = MakeServiceContext({}, context);
        io_case.m_pContext.reset(context);
    }
    if (nCode != 0) {
        io_case.m_pContext.reset();
        std::string fault;
        for (const std::string& file : Files()) {
            fault = fault.empty() ? SyntaxFault(file) : fault;
        }
        io_case.m_report.Fail("config-syntax", "the configuration", fault.empty() ? ErrorWords(nullptr, nCode) : fault,
                              "correct that line: outside a comment there are [section], name = value, name = { and }");
        return;
    }
    SetPlantedCacheAside(io_case);
    Krb5Owner<char*, krb5_free_default_realm> realm(context);
    nCode = krb5_get_default_realm(context, realm.Receive());
    if (nCode != 0) {
        io_case.m_report.Fail("realm-missing", "the default realm", io_case.Words(nCode),
                              "set default_realm in the section [libdefaults] of the configuration");
        return;
    }
    io_case.m_realm = realm.get();
    io_case.m_report.Ok("configuration", "the configuration", "the default realm is " + io_case.m_realm);
}

}  // namespace morwen::doctor
