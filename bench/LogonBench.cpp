// Whole logons: through the exports, and the same on GSS-API and on libkrb5.
#include <memory>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"
#include "bench/ForgedService.h"
#include "bench/GssLogon.h"
#include "bench/Krb5Logon.h"

namespace morwen::bench {

namespace {

// Each thread has a loop of its own, made before the clock runs.
template <class Loop, class... Arguments>
benchmark::internal::Benchmark* RegisterLoop(const std::string& i_name, Arguments... i_arguments) {
    return Register(i_name, [i_arguments...](benchmark::State& io_state) {
        const auto pLoop = std::make_unique<Loop>(i_arguments...);
        pLoop->Run();
        for ([[maybe_unused]] auto _ : io_state) {
            pLoop->Run();
        }
    });
}

void RegisterAll(const std::string& i_case, const Target& i_target) {
    RegisterLoop<ExportLogon>("logon/" + i_case + "/exports", i_target);
    RegisterLoop<GssLogon>("logon/" + i_case + "/gss-held", i_target, GssLogon::Credentials::Held);
    RegisterLoop<Krb5Logon>("logon/" + i_case + "/krb5", i_target);
}

}  // namespace

void RegisterLogons() {
    for (const int nThreads : {1, 2}) {
        const Target target;
        RegisterLoop<ExportLogon>("logon/plain/exports", target)->Threads(nThreads);
        RegisterLoop<GssLogon>("logon/plain/gss-held", target, GssLogon::Credentials::Held)->Threads(nThreads);
        RegisterLoop<GssLogon>("logon/plain/gss-acquired", target, GssLogon::Credentials::AcquiredEachTime)
            ->Threads(nThreads);
        RegisterLoop<Krb5Logon>("logon/plain/krb5", target)->Threads(nThreads);
    }
    RegisterLoop<ExportLogon>("logon/spnego/exports", Target{.m_bNegotiate = true});
    RegisterLoop<ExportLogon>("logon/bindings/exports", Target{.m_bBind = true});
    RegisterAll("delegation", {"fwd/localhost", true});
    constexpr std::pair<const char*, krb5_enctype> kEnctypes[] = {{"aes128-sha1", ENCTYPE_AES128_CTS_HMAC_SHA1_96},
                                                                  {"aes256-sha1", ENCTYPE_AES256_CTS_HMAC_SHA1_96},
                                                                  {"aes128-sha2", ENCTYPE_AES128_CTS_HMAC_SHA256_128},
                                                                  {"aes256-sha2", ENCTYPE_AES256_CTS_HMAC_SHA384_192}};
    for (const auto& [pszName, nEnctype] : kEnctypes) {
        const std::string service = std::string("forged-") + pszName + "/localhost";  // the realm has the plain ones
        ForgeService(service, nEnctype, 0);
        RegisterAll(pszName, {service});
    }
    for (const uint32_t nGroups : {5U, 50U, 300U}) {
        const std::string name = "pac-" + std::to_string(nGroups);
        ForgeService(name + "/localhost", ENCTYPE_AES256_CTS_HMAC_SHA1_96, nGroups);
        RegisterAll(name, {name + "/localhost"});
    }
}

}  // namespace morwen::bench
