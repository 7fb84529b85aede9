// Encryption types: their names, and which of them the library takes.
#include "tools/doctor/EncTypes.h"

#include <array>

namespace morwen::doctor {

namespace {

bool IsSet(const Case& i_case, const char* i_pszName) {
    int nValue = 0;
    return profile_get_boolean(i_case.m_pProfile.get(), "libdefaults", i_pszName, nullptr, 0, &nValue) == 0 &&
           nValue != 0;
}

bool IsConfigured(const Case& i_case) {
    const char* const aNames[] = {"libdefaults", "permitted_enctypes", nullptr};
    char** ppszValues = nullptr;
    if (profile_get_values(i_case.m_pProfile.get(), aNames, &ppszValues) != 0) {
        return false;
    }
    profile_free_list(ppszValues);
    return true;
}

}  // namespace

std::string TypeText(krb5_enctype i_nType) {
    std::array<char, 64> aName{};
    return krb5_enctype_to_name(i_nType, 0, aName.data(), aName.size()) == 0 ? aName.data()
                                                                             : "type " + std::to_string(i_nType);
}

bool IsWeak(krb5_enctype i_nType) noexcept {
    switch (i_nType) {
        case ENCTYPE_DES_CBC_CRC:
        case ENCTYPE_DES_CBC_MD4:
        case ENCTYPE_DES_CBC_MD5:
        case ENCTYPE_DES3_CBC_SHA1:
        case ENCTYPE_ARCFOUR_HMAC:
        case ENCTYPE_ARCFOUR_HMAC_EXP:
            return true;
        default:
            return false;
    }
}

std::vector<krb5_enctype> TypesOfLibrary(const Case& i_case) {
    krb5_enctype* pPermitted = nullptr;
    std::vector<krb5_enctype> types;
    if (krb5_get_permitted_enctypes(i_case.Context(), &pPermitted) != 0) {
        return types;
    }
    const bool bAll = IsConfigured(i_case) || IsSet(i_case, "allow_weak_crypto");
    for (const krb5_enctype* p = pPermitted; *p != 0; ++p) {
        const bool bDes3 = *p == ENCTYPE_DES3_CBC_SHA1;
        if (bAll || !IsWeak(*p) || IsSet(i_case, bDes3 ? "allow_des3" : "allow_rc4")) {
            types.push_back(*p);
        }
    }
    krb5_free_enctypes(i_case.Context(), pPermitted);
    return types;
}

}  // namespace morwen::doctor
