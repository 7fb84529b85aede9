// The system's Kerberos configuration as this layer's contexts see it.
#pragma once

#include <krb5/krb5.h>
#include <profile.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace morwen {

// The system's own configuration files, with four answers of our own.
//
// libdefaults/default_rcache_name names the replay cache file that libkrb5 would use for the user that the process runs
// as now. Left to itself the library picks the file by the thread's effective user at every use, so a replay would be
// accepted while a thread impersonates. An administrator's default_rcache_name wins, because it was written for just
// this purpose; so do KRB5RCACHENAME and KRB5RCACHETYPE in the environment, which libkrb5 asks first: that is traced
// once.
//
// realms/REALM/kdc (and primary_kdc, master_kdc), when the files name none and DNS may be asked, gives the KDCs of the
// realm's SRV records: libkrb5 would search for them itself, with waits that nothing bounds. Where the name service was
// silent, libdefaults/dns_lookup_kdc says no until the next search, so that libkrb5 does not wait for it once more.
// Where it has no SRV records, libkrb5 may still find URI records.
//
// libdefaults/permitted_enctypes leaves RC4 and triple DES out, unless the administrator has set it, or allow_rc4,
// allow_des3 or allow_weak_crypto: releases of libkrb5 that are still in use permit both by default.
//
// What the files say is read once: libkrb5 asks the same few questions at every logon. A context whose configuration
// has changed since is not used again (Krb5ContextPool), and none for longer than a minute.
//
// A profile and its copies belong to one context, and so to one thread at a time.
class ServiceProfile {
public:
    // On success o_profile goes back through profile_release; o_pSelf lives as long as it or a copy of it does. Throws
    // std::bad_alloc.
    static krb5_error_code Open(profile_t& o_profile, ServiceProfile*& o_pSelf);

    // A number that changes when a configuration file does. An included file has no part in it.
    static uint64_t ConfigurationMark() noexcept;

    struct ToldKdcs {
        std::vector<std::string> m_kdcs;
        std::chrono::steady_clock::time_point m_askedAt;
    };
    // What libkrb5 was told when it last asked for the realm's KDCs. Gives it once: none if the library has not asked
    // since, because a locate plug-in told it.
    ToldKdcs TakeToldKdcs(std::string_view i_realm);
    // Which of these KDCs has answered, as KdcName's Text.
    void NoteAnswer(std::string i_kdc) noexcept { m_answeredBy = std::move(i_kdc); }

    ServiceProfile(const ServiceProfile&) = delete;
    ServiceProfile& operator=(const ServiceProfile&) = delete;

private:
    friend struct ServiceProfileFunctions;
    ServiceProfile() = default;
    ~ServiceProfile();

    // What the files say to one question, or what is said in their place.
    struct Answer {
        long m_nCode = 0;
        bool m_bMissing = false;  // nothing is said, and that is no failure
        std::vector<std::string> m_values;
    };
    // Stays until the next question.
    const Answer& ReadAnswer(const char* const* i_names);
    long GetValues(const char* const* i_names, char*** o_pppValues);
    void Locate(const std::string& i_realm, std::string_view i_relation, const std::vector<std::string>& i_configured);
    void Release() noexcept;

    std::atomic<int> m_nUsers{1};
    profile_t m_system = nullptr;
    std::unordered_map<std::string, Answer> m_answers;
    Answer m_passing;           // the newest, which may not be kept
    std::string m_question;     // a member for its memory's sake
    std::string m_replayCache;  // empty: whatever the system says
    std::string m_permittedCiphers;
    std::string m_toldRealm;
    ToldKdcs m_told;
    std::string m_answeredBy;         // since libkrb5 last asked for "kdc"
    bool m_bPrimaryAnswered = false;  // since then
    bool m_bNoDnsByLibrary = false;   // its own search would find nothing new, or wait in vain
};

}  // namespace morwen
