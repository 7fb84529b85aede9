// What the checks of one run know, and hand on to the checks after them.
#pragma once

#include <krb5/krb5.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/contexts/SystemProfile.h"
#include "platform/linux/kdc/KdcAddress.h"
#include "platform/linux/keys/PasswordLogon.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "tools/doctor/report/Report.h"
#include "tools/doctor/report/Texts.h"

namespace morwen::doctor {

struct Options {
    bool m_bServer = false;
    std::string m_spn;      // may be empty: what needs it is skipped
    std::string m_user;     // server: the principal whose account is looked up; client: whose password is tried
    std::string m_account;  // server: the account that the service has; empty: the one that runs this
    std::optional<Harrowlib201::SWCharString> m_ssPassword;  // client: to be tried in place of the cache's tickets
    bool m_bDelegation = false;
    std::string m_secondHop;  // server: another service, to be reached in a user's name
    bool m_bImpersonate = false;
    std::chrono::milliseconds m_wait{3000};  // for the KDCs of a realm, all asked at once
};

struct FreeContext {
    void operator()(krb5_context i_context) const noexcept { krb5_free_context(i_context); }
};

struct Case {
    const Options& m_options;
    Report& m_report;
    // What the files say, which stands behind what the library makes of it.
    SystemProfile m_system{};
    // Made as the library makes its own, so that it permits the same ciphers, finds the same KDCs and waits as long for
    // them. Null when the configuration cannot be read: no check after that one runs.
    std::unique_ptr<std::remove_pointer_t<krb5_context>, FreeContext> m_pContext{};
    std::string m_plantedCache{};                               // the default cache that nothing looks into
    std::string m_cacheFault{};                                 // and why: what the library says of it; else empty
    std::string m_realm{};                                      // the default realm
    std::map<std::string, std::vector<KdcName>> m_answering{};  // the KDCs that answer, by realm
    int64_t m_nClockOffset = 0;                                 // the KDC's clock less this one, in seconds
    bool m_bTickets = false;                                    // the default cache has a ticket to ask with
    std::unique_ptr<PasswordLogon> m_pLogon{};                  // whose cache is the default one then

    krb5_context Context() const noexcept { return m_pContext.get(); }
    std::string Words(krb5_error_code i_nCode) const { return ErrorWords(Context(), i_nCode); }
    bool CanAsk() const noexcept { return !m_answering.empty(); }
};

// The principal that the library makes of a service's name. Empty when none was given; empty, and a finding once, for
// what names no host's service.
Krb5Principal ServiceOf(Case& io_case);

}  // namespace morwen::doctor
