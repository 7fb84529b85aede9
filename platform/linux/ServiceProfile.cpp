// The system's Kerberos configuration as this layer's contexts see it.
#include "platform/linux/ServiceProfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "harrow/STrace.h"

// libkrb5 has exported both since its early days, but its header does not declare them.
extern "C" {
krb5_error_code krb5_get_default_config_files(char*** o_pppszFiles);
void krb5_free_config_files(char** i_ppszFiles);
}

namespace morwen {

namespace {

// What the profile's functions work on. Copies of a profile share it: a context and the copies that libkrb5 makes for
// it are used by one thread at a time, and the system's profile is only read.
struct Answers {
    ~Answers() {
        if (m_system != nullptr) {
            profile_release(m_system);
        }
    }

    std::atomic<int> m_nUsers{1};
    profile_t m_system = nullptr;
    std::string m_replayCache;  // empty: whatever the system says
};

Answers* AnswersOf(void* i_pvData) {
    return static_cast<Answers*>(i_pvData);
}

bool Asks(const char* const* i_names, std::string_view i_section, std::string_view i_relation) {
    return i_names[0] != nullptr && i_section == i_names[0] && i_names[1] != nullptr && i_relation == i_names[1] &&
           i_names[2] == nullptr;
}

// A list that FreeValues releases, with one value.
char** OneValue(const std::string& i_value) {
    auto** const ppList = static_cast<char**>(std::calloc(2, sizeof(char*)));
    if (ppList != nullptr) {
        ppList[0] = strdup(i_value.c_str());
        if (ppList[0] == nullptr) {
            std::free(ppList);
            return nullptr;
        }
    }
    return ppList;
}

long GetValues(void* i_pvData, const char* const* i_names, char*** o_pppValues) {
    const Answers& answers = *AnswersOf(i_pvData);
    const long nCode = profile_get_values(answers.m_system, i_names, o_pppValues);
    const bool bMissing = nCode == PROF_NO_RELATION || nCode == PROF_NO_SECTION;
    if (bMissing && !answers.m_replayCache.empty() && Asks(i_names, "libdefaults", "default_rcache_name")) {
        *o_pppValues = OneValue(answers.m_replayCache);
        return *o_pppValues != nullptr ? 0 : ENOMEM;
    }
    return nCode;
}

// libprofile makes its lists with malloc and frees them one by one, as OneValue's are.
void FreeValues(void*, char** i_ppValues) {
    profile_free_list(i_ppValues);
}

void Release(void* i_pvData) {
    if (AnswersOf(i_pvData)->m_nUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete AnswersOf(i_pvData);
    }
}

long Copy(void* i_pvData, void** o_ppvData) {
    AnswersOf(i_pvData)->m_nUsers.fetch_add(1, std::memory_order_relaxed);
    *o_ppvData = i_pvData;
    return 0;
}

// At the end of an iteration the system's iterator frees itself and clears the pointer that it was given, while the one
// that libkrb5 holds stays and comes back through FreeIterator. Hence the box.
struct IteratorBox {
    void* m_pvIterator = nullptr;
};

long CreateIterator(void* i_pvData, const char* const* i_names, int i_nFlags, void** o_ppvIterator) {
    std::unique_ptr<IteratorBox> pBox(new (std::nothrow) IteratorBox);
    if (pBox == nullptr) {
        return ENOMEM;
    }
    const long nCode = profile_iterator_create(AnswersOf(i_pvData)->m_system, i_names, i_nFlags, &pBox->m_pvIterator);
    if (nCode == 0) {
        *o_ppvIterator = pBox.release();
    }
    return nCode;
}

long Iterate(void*, void* i_pvBox, char** o_ppszName, char** o_ppszValue) {
    return profile_iterator(&static_cast<IteratorBox*>(i_pvBox)->m_pvIterator, o_ppszName, o_ppszValue);
}

void FreeIterator(void*, void* i_pvBox) {
    const std::unique_ptr<IteratorBox> pBox(static_cast<IteratorBox*>(i_pvBox));
    profile_iterator_free(&pBox->m_pvIterator);
}

void FreeString(void*, char* i_pszText) {
    profile_release_string(i_pszText);
}

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
    return nCode >= PROF_NO_SECTION && nCode <= PROF_MODULE_INVALID ? KRB5_CONFIG_BADFORMAT
                                                                    : static_cast<krb5_error_code>(nCode);
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

}  // namespace

krb5_error_code ServiceProfile::Open(profile_t& o_profile) {
    TraceEnvironmentOnce();
    auto pAnswers = std::make_unique<Answers>();
    pAnswers->m_replayCache = ReplayCacheName();
    if (const krb5_error_code nCode = OpenSystemProfile(pAnswers->m_system); nCode != 0) {
        return nCode;
    }
    profile_vtable functions{};
    functions.minor_ver = 1;
    functions.get_values = GetValues;
    functions.free_values = FreeValues;
    functions.cleanup = Release;
    functions.copy = Copy;
    functions.iterator_create = CreateIterator;
    functions.iterator = Iterate;
    functions.iterator_free = FreeIterator;
    functions.free_string = FreeString;
    const long nCode = profile_init_vtable(&functions, pAnswers.get(), &o_profile);
    if (nCode == 0) {
        static_cast<void>(pAnswers.release());
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
