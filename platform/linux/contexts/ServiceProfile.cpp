#include "platform/linux/contexts/ServiceProfile.h"

#include <memory>
#include <string_view>
#include <utility>

#include "platform/linux/contexts/Policy.h"

namespace morwen {

namespace {

bool IsDefault(const char* const* i_names, std::string_view i_relation) {
    return i_names[0] != nullptr && std::string_view("libdefaults") == i_names[0] && i_names[1] != nullptr &&
           i_relation == i_names[1] && i_names[2] == nullptr;
}

// The realm, when a list of its KDCs is asked for.
const char* RealmWhoseKdcsAreAsked(const char* const* i_names) {
    if (i_names[0] == nullptr || i_names[1] == nullptr || i_names[2] == nullptr || i_names[3] != nullptr ||
        std::string_view(i_names[0]) != "realms") {
        return nullptr;
    }
    const std::string_view relation = i_names[2];
    return relation == "kdc" || relation == "primary_kdc" || relation == "master_kdc" ? i_names[1] : nullptr;
}

// Longer questions name a user (auth_to_local_names), so that there would be an answer to keep for each.
constexpr size_t kMostKeptNames = 3;

// libkrb5 asks for the permitted ciphers several times in each logon, and reads the text of the configuration each
// time, unless a program has set them. That setting stands for default_tgs_enctypes too, which says the same where it
// is not set.
void SetPermittedCiphers(krb5_context i_context, profile_t i_profile) noexcept {
    char* pszOfRequests = nullptr;
    const long nCode =
        profile_get_string(i_profile, "libdefaults", "default_tgs_enctypes", nullptr, nullptr, &pszOfRequests);
    const bool bOwn = nCode != 0 || pszOfRequests != nullptr;
    profile_release_string(pszOfRequests);
    krb5_enctype* pPermitted = nullptr;
    if (!bOwn && krb5_get_permitted_enctypes(i_context, &pPermitted) == 0) {
        static_cast<void>(krb5_set_default_tgs_enctypes(i_context, pPermitted));  // else it goes on reading
        krb5_free_enctypes(i_context, pPermitted);
    }
}

}  // namespace

const ServiceProfile::Reading& ServiceProfile::Read(const char* const* i_names) {
    m_question.clear();
    size_t nNames = 0;
    for (; i_names[nNames] != nullptr; ++nNames) {
        m_question.append(i_names[nNames]).push_back('\0');
    }
    const bool bKeep = nNames <= kMostKeptNames;
    if (bKeep) {
        if (const Reading* const pKept = m_readings.Find(m_question)) {
            return *pKept;
        }
    }
    m_passing = {};
    m_passing.m_nCode = m_system.Values(i_names, m_passing.m_values);
    m_passing.m_bMissing = m_passing.m_nCode == PROF_NO_RELATION || m_passing.m_nCode == PROF_NO_SECTION;
    if (m_passing.m_bMissing && !m_replayCache.empty() && IsDefault(i_names, "default_rcache_name")) {
        m_passing = {0, false, {m_replayCache}};
    } else if (m_passing.m_bMissing && IsDefault(i_names, "permitted_enctypes")) {
        m_passing = {0, false, {m_permittedCiphers}};
    }
    if (bKeep && (m_passing.m_nCode == 0 || m_passing.m_bMissing)) {
        return m_readings.Hold(m_question, m_passing);
    }
    return m_passing;
}

long ServiceProfile::Answer(const char* const* i_names, const std::vector<std::string>*& o_pValues) {
    if (m_hook.IsDnsOff() && IsDefault(i_names, "dns_lookup_kdc")) {
        m_passing = {0, false, {"false"}};
        o_pValues = &m_passing.m_values;
        return 0;
    }
    const Reading& reading = Read(i_names);
    o_pValues = &reading.m_values;
    const char* const pszRealm = RealmWhoseKdcsAreAsked(i_names);
    if (pszRealm != nullptr && (reading.m_nCode == 0 || reading.m_bMissing)) {
        o_pValues = &m_hook.Locate(m_system, pszRealm, i_names[2], reading.m_values);
        return !o_pValues->empty() ? 0 : reading.m_nCode == 0 ? long{PROF_NO_RELATION} : reading.m_nCode;
    }
    return reading.m_nCode;
}

krb5_error_code ServiceProfile::Open(std::string i_replayCache, profile_t& o_profile, KdcHook*& o_pHook) {
    const auto release = [](ServiceProfile* i_pProfile) { i_pProfile->Release(); };
    const std::unique_ptr<ServiceProfile, decltype(release)> pSelf(new ServiceProfile, release);
    pSelf->m_replayCache = std::move(i_replayCache);
    if (const krb5_error_code nCode = pSelf->m_system.Open(); nCode != 0) {
        return nCode;
    }
    pSelf->m_permittedCiphers = PermittedCiphers(pSelf->m_system);
    o_pHook = &pSelf->m_hook;
    return static_cast<krb5_error_code>(pSelf->Publish(o_profile));
}

krb5_error_code MakeServiceContext(std::string i_replayCache, krb5_context& o_context) {
    profile_t profile = nullptr;
    KdcHook* pHook = nullptr;
    krb5_error_code nCode = ServiceProfile::Open(std::move(i_replayCache), profile, pHook);
    if (nCode != 0) {
        return nCode;
    }
    nCode = krb5_init_context_profile(profile, 0, &o_context);
    if (nCode == 0) {
        // The context's own copy of the profile keeps the hook alive.
        pHook->Install(o_context);
        SetPermittedCiphers(o_context, profile);
    }
    profile_release(profile);
    return nCode;
}

}  // namespace morwen
