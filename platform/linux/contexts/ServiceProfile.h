// The system's Kerberos configuration as this layer's contexts see it.
#pragma once

#include <string>
#include <unordered_map>

#include "harrow/lifetime/HeldMap.h"
#include "platform/linux/contexts/AnsweringProfile.h"
#include "platform/linux/contexts/KdcHook.h"

namespace morwen {

// The system's own configuration files, with four answers of our own.
//
// libdefaults/default_rcache_name names the replay cache file that libkrb5 would use for the user that the process runs
// as now. Left to itself the library picks the file by the thread's effective user at every use, so a replay would be
// accepted while a thread impersonates. An administrator's default_rcache_name wins, because it was written for just
// this purpose; so do KRB5RCACHENAME and KRB5RCACHETYPE in the environment, which libkrb5 asks first.
//
// realms/REALM/kdc (and primary_kdc, master_kdc) and libdefaults/dns_lookup_kdc are the hook's to answer (KdcHook).
//
// libdefaults/permitted_enctypes is the policy's, unless the administrator has set it.
//
// What the files say is read once: libkrb5 asks the same few questions at every logon. A context whose configuration
// has changed since is not used again (LendKrb5Context), and none for longer than a minute.
class ServiceProfile : public AnsweringProfile {
public:
    // With this answer for default_rcache_name; empty: whatever the system says. On success o_profile goes back through
    // profile_release, and o_pHook lives as long as it or a copy of it does. Throws std::bad_alloc.
    static krb5_error_code Open(std::string i_replayCache, profile_t& o_profile, KdcHook*& o_pHook);

private:
    ServiceProfile() = default;
    ~ServiceProfile() override = default;

    // What the files say to one question, or what is said in their place.
    struct Reading {
        long m_nCode = 0;
        bool m_bMissing = false;  // nothing is said, and that is no failure
        std::vector<std::string> m_values;
    };
    // Stays until the next question.
    const Reading& Read(const char* const* i_names);
    long Answer(const char* const* i_names, const std::vector<std::string>*& o_pValues) override;

    // More than a process asks, unless users of very many realms log on.
    static constexpr size_t kMostReadings = 64;

    Harrowlib201::HeldMap<std::string, Reading, kMostReadings, std::unordered_map<std::string, Reading>> m_readings;
    Reading m_passing;          // the newest, which may not be kept
    std::string m_question;     // a member for its memory's sake
    std::string m_replayCache;  // empty: whatever the system says
    std::string m_permittedCiphers;
    KdcHook m_hook;
};

// A context on such a profile, whose requests go through the profile's hook. 0 or the library's code. Throws
// std::bad_alloc.
krb5_error_code MakeServiceContext(std::string i_replayCache, krb5_context& o_context);

}  // namespace morwen
