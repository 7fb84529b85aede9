// Encryption types: their names, and which of them the library takes.
#pragma once

#include <string>
#include <vector>

#include "tools/doctor/case/Case.h"

namespace morwen::doctor {

// "aes256-cts-hmac-sha1-96".
std::string TypeText(krb5_enctype i_nType);

// DES, triple DES and RC4.
bool IsWeak(krb5_enctype i_nType) noexcept;

// Those that the library permits.
std::vector<krb5_enctype> TypesOfLibrary(const Case& i_case);

}  // namespace morwen::doctor
