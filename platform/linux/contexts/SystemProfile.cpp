#include "platform/linux/contexts/SystemProfile.h"

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string_view>

// libkrb5 has exported both since its early days, but its header does not declare them.
extern "C" {
krb5_error_code krb5_get_default_config_files(char*** o_pppszFiles);
void krb5_free_config_files(char** i_ppszFiles);
}

namespace morwen {

SystemProfile::~SystemProfile() {
    if (m_profile != nullptr) {
        profile_release(m_profile);
    }
}

krb5_error_code SystemProfile::Open() noexcept {
    char** ppszFiles = nullptr;
    if (const krb5_error_code nCode = krb5_get_default_config_files(&ppszFiles); nCode != 0) {
        return nCode;
    }
    long nCode =
        profile_init_flags(const_cast<const_profile_filespec_t*>(ppszFiles), PROFILE_INIT_ALLOW_MODULE, &m_profile);
    krb5_free_config_files(ppszFiles);
    if (nCode == ENOENT) {
        nCode = profile_init(nullptr, &m_profile);
    }
    const bool bBadFormat = nCode >= PROF_NO_SECTION && nCode <= PROF_MODULE_INVALID;
    return static_cast<krb5_error_code>(bBadFormat ? KRB5_CONFIG_BADFORMAT : nCode);
}

// In place of profile_get_values, which writes through a null pointer when there is no memory for its list.
long SystemProfile::Values(const char* const* i_names, std::vector<std::string>& o_values) const {
    void* pvIterator = nullptr;
    long nCode = profile_iterator_create(m_profile, i_names, PROFILE_ITER_RELATIONS_ONLY, &pvIterator);
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

bool SystemProfile::IsSet(const char* i_pszRelation, bool i_bDefault) const noexcept {
    int nSet = i_bDefault ? 1 : 0;
    profile_get_boolean(m_profile, "libdefaults", i_pszRelation, nullptr, nSet, &nSet);
    return nSet != 0;
}

std::string ConfigurationFiles() {
    std::string names;
    char** ppszFiles = nullptr;
    if (krb5_get_default_config_files(&ppszFiles) == 0) {
        const std::unique_ptr<char*, decltype(&krb5_free_config_files)> pOwner(ppszFiles, krb5_free_config_files);
        for (char** ppszFile = ppszFiles; *ppszFile != nullptr; ++ppszFile) {
            names.append(names.empty() ? "" : ":").append(*ppszFile);
        }
    }
    return names;
}

uint64_t ConfigurationMark() noexcept {
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
