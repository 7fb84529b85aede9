// What the checks of one run know, and hand on to the checks after them.
#pragma once

#include <krb5/krb5.h>
#include <profile.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/kdc/KdcAddress.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "tools/doctor/Report.h"
#include "tools/doctor/TraceLog.h"

namespace morwen::doctor {

struct Options {
    bool m_bServer = false;
    std::string m_spn;   // may be empty: what needs it is skipped
    std::string m_user;  // server: the principal whose account is looked up
    bool m_bDelegation = false;
    bool m_bImpersonate = false;
    std::chrono::milliseconds m_wait{3000};  // for the KDCs of a realm, all asked at once
};

struct FreeContext {
    void operator()(krb5_context i_context) const noexcept { krb5_free_context(i_context); }
};
struct FreeProfile {
    void operator()(profile_t i_profile) const noexcept { profile_release(i_profile); }
};

struct Case {
    const Options& m_options;
    Report& m_report;
    TraceLog& m_trace;
    // Null when the configuration cannot be read: no check after that one runs.
    std::unique_ptr<std::remove_pointer_t<krb5_context>, FreeContext> m_pContext{};
    std::unique_ptr<std::remove_pointer_t<profile_t>, FreeProfile> m_pProfile{};
    std::string m_realm{};                                      // the default realm
    std::map<std::string, std::vector<KdcName>> m_answering{};  // the KDCs that answer, by realm
    int64_t m_nClockOffset = 0;                                 // the KDC's clock less this one, in seconds
    bool m_bTickets = false;                                    // the default cache has a ticket to ask with

    krb5_context Context() const noexcept { return m_pContext.get(); }
    std::string Words(krb5_error_code i_nCode) const { return ErrorWords(Context(), i_nCode); }
    bool CanAsk() const noexcept { return !m_answering.empty(); }
};

// The principal that the library makes of a service's name: the host's realm from the configuration, no alias from DNS.
// Empty when none was given; empty, and a finding once, for what is no such name.
Krb5Principal ServiceOf(Case& io_case);

// "user (uid 0)" of this process: whose rights the findings are about.
std::string ThisAccount();

// Adds an item to a list for people.
void Enumerate(std::string& io_list, std::string_view i_item, std::string_view i_separator = ", ");

// As a shell takes it.
std::string Quoted(const std::string& i_text);

}  // namespace morwen::doctor
