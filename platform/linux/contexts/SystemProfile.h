// The system's Kerberos configuration, as its files say it.
#pragma once

#include <krb5/krb5.h>
#include <profile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace morwen {

class SystemProfile {
public:
    SystemProfile() noexcept = default;
    SystemProfile(const SystemProfile&) = delete;
    SystemProfile& operator=(const SystemProfile&) = delete;
    ~SystemProfile();

    // To be called once, before everything else. Files that are not there are no error, as for libkrb5 itself.
    krb5_error_code Open() noexcept;

    profile_t get() const noexcept { return m_profile; }

    // All values of the relation with these names, which end with a null pointer. 0 or libprofile's code. Throws
    // std::bad_alloc.
    long Values(const char* const* i_names, std::vector<std::string>& o_values) const;
    // A boolean of the section libdefaults.
    bool IsSet(const char* i_pszRelation, bool i_bDefault = false) const noexcept;

private:
    profile_t m_profile = nullptr;
};

// The files that the library reads, one after the other with ":" between them. Throws std::bad_alloc.
std::string ConfigurationFiles();

// A number that changes when a configuration file does. An included file has no part in it.
uint64_t ConfigurationMark() noexcept;

}  // namespace morwen
