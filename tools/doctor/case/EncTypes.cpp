// Encryption types: their names, and which of them the library takes.
#include "tools/doctor/case/EncTypes.h"

#include <array>

namespace morwen::doctor {

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
    for (const krb5_enctype* p = pPermitted; *p != 0; ++p) {
        types.push_back(*p);
    }
    krb5_free_enctypes(i_case.Context(), pPermitted);
    return types;
}

}  // namespace morwen::doctor
