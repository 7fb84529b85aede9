// The system's Kerberos configuration as this layer's contexts see it.
#include "platform/linux/contexts/ServiceProfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "harrow/log/STrace.h"
#include "platform/linux/kdc/KdcAddress.h"
#include "platform/linux/kdc/KdcLocator.h"

// libkrb5 has exported both since its early days, but its header does not declare them.
extern "C" {
krb5_error_code krb5_get_default_config_files(char*** o_pppszFiles);
void krb5_free_config_files(char** i_ppszFiles);
}

namespace morwen {

namespace {

bool IsNamed(const char* const* i_names, std::string_view i_section, std::string_view i_relation) {
    return i_names[0] != nullptr && i_section == i_names[0] && i_names[1] != nullptr && i_relation == i_names[1] &&
           i_names[2] == nullptr;
}

// The realm, when a list of its KDCs is asked for.
const char* RealmWhoseKdcsAreAsked(const char* const* i_names) {
    if (i_names[0] == nullptr || i_names[1] == nullptr || i_names[2] == nullptr || i_names[3] != nullptr ||
        std::string_view(i_names[0]) != "realms") {
        return nullptr;
    }
    const std::string_view relation = i_names[2];
    return relation == "kdc" || relation == "primary_kdc" || relation == "master_kdc" ? i_names[1] : nullptr;
}

// Longer questions name a user (auth_to_local_names), so that there would be an answer to keep for each.
constexpr size_t kMostKeptNames = 3;
// More than a process asks, unless users of very many realms log on.
constexpr size_t kMostAnswers = 64;

using ValueList = std::unique_ptr<char*[], decltype(&profile_free_list)>;

// A list as libprofile makes them, so that profile_free_list releases it: malloc, every text and the list.
long MakeList(const std::vector<std::string>& i_values, char*** o_pppList) {
    ValueList pList(static_cast<char**>(std::calloc(i_values.size() + 1, sizeof(char*))), profile_free_list);
    if (pList == nullptr) {
        return ENOMEM;
    }
    for (size_t i = 0; i < i_values.size(); ++i) {
        pList[i] = strdup(i_values[i].c_str());
        if (pList[i] == nullptr) {
            return ENOMEM;
        }
    }
    *o_pppList = pList.release();
    return 0;
}

// At the end of an iteration the system's iterator frees itself and clears the pointer that it was given, while the one
// that libkrb5 holds stays and comes back through FreeIterator. Hence the box.
struct IteratorBox {
    void* m_pvIterator = nullptr;
};

// Configuration that is not there is no error, as for libkrb5 itself.
krb5_error_code OpenSystemProfile(profile_t& o_profile) {
    char** ppszFiles = nullptr;
    if (const krb5_error_code nCode = krb5_get_default_config_files(&ppszFiles); nCode != 0) {
        return nCode;
    }
    long nCode =
        profile_init_flags(const_cast<const_profile_filespec_t*>(ppszFiles), PROFILE_INIT_ALLOW_MODULE, &o_profile);
    krb5_free_config_files(ppszFiles);
    if (nCode == ENOENT) {
        nCode = profile_init(nullptr, &o_profile);
    }
    const bool bBadFormat = nCode >= PROF_NO_SECTION && nCode <= PROF_MODULE_INVALID;
    return static_cast<krb5_error_code>(bBadFormat ? KRB5_CONFIG_BADFORMAT : nCode);
}

void TraceEnvironmentOnce() {
    static std::atomic<bool> s_bTraced{false};
    for (const char* const pszName : {"KRB5RCACHENAME", "KRB5RCACHETYPE"}) {
        const char* const pszValue = secure_getenv(pszName);
        if (pszValue != nullptr && Harrowlib201::ShouldTrace() && !s_bTraced.exchange(true)) {
            S_TRACE("platform: the environment decides on the replay cache: %1=%2", pszName, pszValue);
        }
    }
}

// The name of the file that libkrb5 would use for this user; empty when it is not safely ours. Through a name the
// library opens any file, so what it checks for its own choice is checked here: a regular file, not behind a link,
// owned by this user. Once it is there and ours, nobody else can replace it in a sticky folder. When the check fails,
// the library's own choice is left in force, which makes the same check at every use and refuses logons.
std::string ReplayCacheName() {
    const char* pszFolder = secure_getenv("KRB5RCACHEDIR");
    if (pszFolder == nullptr) {
        pszFolder = secure_getenv("TMPDIR");
    }
    const uid_t nUser = geteuid();
    const std::string path =
        std::string(pszFolder != nullptr ? pszFolder : "/var/tmp") + "/krb5_" + std::to_string(nUser) + ".rcache2";
    const int nFile = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    struct stat status {};
    const bool bOurs = nFile >= 0 && fstat(nFile, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == nUser;
    if (nFile >= 0) {
        close(nFile);
    }
    if (!bOurs) {
        S_TRACE("platform: the replay cache %1 is not a file of user %2, logons will be refused", path,
                static_cast<uint32_t>(nUser));
        return {};
    }
    return "file2:" + path;
}

// In place of profile_get_values, which writes through a null pointer when there is no memory for its list.
long SystemValues(profile_t i_system, const char* const* i_names, std::vector<std::string>& o_values) {
    void* pvIterator = nullptr;
    long nCode = profile_iterator_create(i_system, i_names, PROFILE_ITER_RELATIONS_ONLY, &pvIterator);
    const auto free = [](void** i_ppvIterator) { profile_iterator_free(i_ppvIterator); };
    const std::unique_ptr<void*, decltype(free)> pOwner(&pvIterator, free);
    while (nCode == 0 && pvIterator != nullptr) {
        char* pszValue = nullptr;
        nCode = profile_iterator(&pvIterator, nullptr, &pszValue);
        const std::unique_ptr<char, decltype(&profile_release_string)> pValue(pszValue, profile_release_string);
        if (nCode == 0 && pszValue != nullptr) {
            o_values.emplace_back(pszValue);
        }
    }
    return nCode == 0 && o_values.empty() ? long{PROF_NO_RELATION} : nCode;
}

bool IsSet(profile_t i_system, const char* i_pszRelation) {
    int nSet = 0;
    profile_get_boolean(i_system, "libdefaults", i_pszRelation, nullptr, 0, &nSet);
    return nSet != 0;
}

std::string PermittedCiphers(profile_t i_system) {
    std::string ciphers = "DEFAULT";
    if (!IsSet(i_system, "allow_weak_crypto")) {
        ciphers += IsSet(i_system, "allow_rc4") ? "" : " -rc4";
        ciphers += IsSet(i_system, "allow_des3") ? "" : " -des3";
    }
    return ciphers;
}

bool MayAskDns(profile_t i_system) {
    int nFallback = 1;
    int nMay = 1;
    profile_get_boolean(i_system, "libdefaults", "dns_fallback", nullptr, 1, &nFallback);
    profile_get_boolean(i_system, "libdefaults", "dns_lookup_kdc", nullptr, nFallback, &nMay);
    return nMay != 0;
}

}  // namespace

// The functions that libprofile calls.
struct ServiceProfileFunctions {
    static ServiceProfile& SelfOf(void* i_pvData) { return *static_cast<ServiceProfile*>(i_pvData); }

    static long GetValues(void* i_pvData, const char* const* i_names, char*** o_pppValues) {
        try {
            return SelfOf(i_pvData).GetValues(i_names, o_pppValues);
        } catch (const std::bad_alloc&) {
            return ENOMEM;
        }
    }

    static void FreeValues(void*, char** i_ppszValues) { profile_free_list(i_ppszValues); }

    static void Release(void* i_pvData) { SelfOf(i_pvData).Release(); }

    static long Copy(void* i_pvData, void** o_ppvData) {
        SelfOf(i_pvData).m_nUsers.fetch_add(1, std::memory_order_relaxed);
        *o_ppvData = i_pvData;
        return 0;
    }

    static long CreateIterator(void* i_pvData, const char* const* i_names, int i_nFlags, void** o_ppvIterator) {
        std::unique_ptr<IteratorBox> pBox(new (std::nothrow) IteratorBox);
        if (pBox == nullptr) {
            return ENOMEM;
        }
        const long nCode = profile_iterator_create(SelfOf(i_pvData).m_system, i_names, i_nFlags, &pBox->m_pvIterator);
        if (nCode == 0) {
            *o_ppvIterator = pBox.release();
        }
        return nCode;
    }

    static long Iterate(void*, void* i_pvBox, char** o_ppszName, char** o_ppszValue) {
        return profile_iterator(&static_cast<IteratorBox*>(i_pvBox)->m_pvIterator, o_ppszName, o_ppszValue);
    }

    static void FreeIterator(void*, void* i_pvBox) {
        const std::unique_ptr<IteratorBox> pBox(static_cast<IteratorBox*>(i_pvBox));
        profile_iterator_free(&pBox->m_pvIterator);
    }

    static void FreeString(void*, char* i_pszText) { profile_release_string(i_pszText); }
};

ServiceProfile::~ServiceProfile() {
    if (m_system != nullptr) {
        profile_release(m_system);
    }
}

void ServiceProfile::Release() noexcept {
    if (m_nUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

const ServiceProfile::Answer& ServiceProfile::ReadAnswer(const char* const* i_names) {
    m_question.clear();
    size_t nNames = 0;
    for (; i_names[nNames] != nullptr; ++nNames) {
        m_question.append(i_names[nNames]).push_back('\0');
    }
    const bool bKeep = nNames <= kMostKeptNames;
    if (bKeep) {
        const auto found = m_answers.find(m_question);
        if (found != m_answers.end()) {
            return found->second;
        }
    }
    m_passing = {};
    m_passing.m_nCode = SystemValues(m_system, i_names, m_passing.m_values);
    m_passing.m_bMissing = m_passing.m_nCode == PROF_NO_RELATION || m_passing.m_nCode == PROF_NO_SECTION;
    if (m_passing.m_bMissing && !m_replayCache.empty() && IsNamed(i_names, "libdefaults", "default_rcache_name")) {
        m_passing = {0, false, {m_replayCache}};
    } else if (m_passing.m_bMissing && IsNamed(i_names, "libdefaults", "permitted_enctypes")) {
        m_passing = {0, false, {m_permittedCiphers}};
    }
    if (bKeep && (m_passing.m_nCode == 0 || m_passing.m_bMissing)) {
        if (m_answers.size() >= kMostAnswers) {
            m_answers.clear();
        }
        m_answers.emplace(m_question, m_passing);  // all of it, or nothing
    }
    return m_passing;
}

long ServiceProfile::GetValues(const char* const* i_names, char*** o_pppValues) {
    if (m_bNoDnsByLibrary && IsNamed(i_names, "libdefaults", "dns_lookup_kdc")) {
        return MakeList({"false"}, o_pppValues);
    }
    const Answer& answer = ReadAnswer(i_names);
    const long nCode = answer.m_nCode;
    const bool bMissing = answer.m_bMissing;
    const char* const pszRealm = RealmWhoseKdcsAreAsked(i_names);
    if (pszRealm != nullptr && (nCode == 0 || bMissing)) {
        Locate(pszRealm, i_names[2], answer.m_values);
        if (m_told.m_kdcs.empty()) {
            return nCode == 0 ? long{PROF_NO_RELATION} : nCode;
        }
        if (bMissing) {
            return MakeList(m_told.m_kdcs, o_pppValues);
        }
    }
    return nCode == 0 ? MakeList(answer.m_values, o_pppValues) : nCode;
}

void ServiceProfile::Locate(const std::string& i_realm, std::string_view i_relation,
                            const std::vector<std::string>& i_configured) {
    const bool bPrimary = i_relation != "kdc";
    if (!bPrimary || m_toldRealm != i_realm) {
        m_answeredBy.clear();
        m_bPrimaryAnswered = false;
    }
    m_toldRealm = i_realm;
    m_told = {i_configured, std::chrono::steady_clock::now()};
    m_bNoDnsByLibrary = false;
    // libkrb5 asks for the primary KDC under its new name first, then under its old one: one search is enough.
    if (m_told.m_kdcs.empty() && i_relation != "primary_kdc" && !m_bPrimaryAnswered && MayAskDns(m_system)) {
        const KdcLocator::Result eResult =
            KdcLocator::Find(bPrimary ? "kerberos-master" : "kerberos", i_realm, m_told.m_kdcs);
        m_bNoDnsByLibrary = eResult == KdcLocator::Result::Silent;
    }
    const auto hasAnswered = [this](const std::string& i_kdc) {
        const std::optional<KdcName> name = KdcName::Parse(i_kdc);
        return name && name->Text() == m_answeredBy;
    };
    m_bPrimaryAnswered =
        m_bPrimaryAnswered || (bPrimary && std::any_of(m_told.m_kdcs.begin(), m_told.m_kdcs.end(), hasAnswered));
    if (m_bPrimaryAnswered) {
        m_told.m_kdcs.clear();
        m_bNoDnsByLibrary = true;
    }
}

ServiceProfile::ToldKdcs ServiceProfile::TakeToldKdcs(std::string_view i_realm) {
    ToldKdcs told = std::exchange(m_told, {});
    return m_toldRealm == i_realm ? told : ToldKdcs();
}

krb5_error_code ServiceProfile::Open(profile_t& o_profile, ServiceProfile*& o_pSelf) {
    TraceEnvironmentOnce();
    // Released like every copy of it.
    const auto release = [](ServiceProfile* i_pProfile) { i_pProfile->Release(); };
    std::unique_ptr<ServiceProfile, decltype(release)> pSelf(new ServiceProfile, release);
    pSelf->m_replayCache = ReplayCacheName();
    if (const krb5_error_code nCode = OpenSystemProfile(pSelf->m_system); nCode != 0) {
        return nCode;
    }
    pSelf->m_permittedCiphers = PermittedCiphers(pSelf->m_system);
    profile_vtable functions{};
    functions.minor_ver = 1;
    functions.get_values = ServiceProfileFunctions::GetValues;
    functions.free_values = ServiceProfileFunctions::FreeValues;
    functions.cleanup = ServiceProfileFunctions::Release;
    functions.copy = ServiceProfileFunctions::Copy;
    functions.iterator_create = ServiceProfileFunctions::CreateIterator;
    functions.iterator = ServiceProfileFunctions::Iterate;
    functions.iterator_free = ServiceProfileFunctions::FreeIterator;
    functions.free_string = ServiceProfileFunctions::FreeString;
    const long nCode = profile_init_vtable(&functions, pSelf.get(), &o_profile);
    if (nCode == 0) {
        o_pSelf = pSelf.release();
    }
    return static_cast<krb5_error_code>(nCode);
}

uint64_t ServiceProfile::ConfigurationMark() noexcept {
    uint64_t nMark = 0;
    const auto mix = [&nMark](auto i_nValue) { nMark = (nMark ^ static_cast<uint64_t>(i_nValue)) * 0x100000001B3U; };
    char** ppszFiles = nullptr;
    if (krb5_get_default_config_files(&ppszFiles) != 0) {
        return nMark;
    }
    for (char** ppszFile = ppszFiles; *ppszFile != nullptr; ++ppszFile) {
        mix(std::hash<std::string_view>()(*ppszFile));
        struct stat status {};
        if (stat(*ppszFile, &status) == 0) {
            mix(status.st_dev);
            mix(status.st_ino);
            mix(status.st_size);
            mix(status.st_mtim.tv_sec);
            mix(status.st_mtim.tv_nsec);
        }
    }
    krb5_free_config_files(ppszFiles);
    return nMark;
}

}  // namespace morwen
