// The same header from C++20: it must compile under the project's warnings, with the same layouts and C names.
#include <cstddef>
#include <type_traits>

#include "morwen/harrow_log.h"
#include "morwen/morwenplugin.h"

static_assert(sizeof(ParasSeq) == 32 && offsetof(ParasSeq, value) == 16 && offsetof(ParasSeq, next) == 24);
static_assert(sizeof(SSOError) == 24 && offsetof(SSOError, message) == 16);
static_assert(sizeof(SSOSubstitution) == 16);
static_assert(sizeof(SSOChar) == 2 && sizeof(SSOLength) == 4 && std::is_unsigned_v<SSOLength>);
#ifdef _WIN32
#define HOST_TEXT(literal) L"" literal
#else
#define HOST_TEXT(literal) u"" literal
#endif
static_assert(std::is_same_v<std::remove_cvref_t<decltype(*(HOST_TEXT(SSO_PROVIDER_SSPI)))>, SSOChar>);
