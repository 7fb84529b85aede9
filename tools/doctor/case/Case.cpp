// What the checks of one run know.
#include "tools/doctor/case/Case.h"

#include "platform/linux/keys/ServiceName.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen::doctor {

namespace {
constexpr const char* kLettersAndDigits = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
}

Krb5Principal ServiceOf(Case& io_case) {
    const std::string& spn = io_case.m_options.m_spn;
    Krb5Principal principal(io_case.Context());
    if (spn.empty()) {
        return principal;
    }
    std::string fault;
    try {
        Krb5Principal named = ServicePrincipal(io_case.Context(), spn);
        const size_t nRealm = spn.rfind('@');
        if (nRealm != std::string::npos && spn.find_first_of(kLettersAndDigits, nRealm) == std::string::npos) {
            fault = "what follows the @ is no realm";
        } else if (named->length >= 2 && named->data[0].length != 0 && named->data[1].length != 0) {
            return named;
        }
        fault = fault.empty() ? io_case.Words(KRB5_PARSE_MALFORMED) : fault;
    } catch (const SspiFailure& failure) {
        fault = FailureText(failure.Status());
    }
    if (!io_case.m_report.Has("spn-malformed")) {
        io_case.m_report.Fail("spn-malformed", "the service's principal " + spn, fault,
                              "give it as service/host, for example --spn morwen/server.example.org");
    }
    return principal;
}

}  // namespace morwen::doctor
