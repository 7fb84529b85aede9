// The system's Kerberos configuration as this layer's contexts see it.
#pragma once

#include <krb5/krb5.h>
#include <profile.h>

#include <cstdint>

namespace morwen {

// The system's own configuration files with one answer added: libdefaults/default_rcache_name names the replay cache
// file that libkrb5 would use for the user that the process runs as now. Left to itself the library picks the file by
// the thread's effective user at every use, so a replay would be accepted while a thread impersonates.
//
// An administrator's default_rcache_name wins, because it was written for just this purpose; so do KRB5RCACHENAME and
// KRB5RCACHETYPE in the environment, which libkrb5 asks first: that is traced once.
class ServiceProfile {
public:
    // On success o_profile goes back through profile_release. Throws std::bad_alloc.
    static krb5_error_code Open(profile_t& o_profile);

    // A number that changes when a configuration file does. An included file has no part in it.
    static uint64_t ConfigurationMark() noexcept;
};

}  // namespace morwen
