// What libkrb5's objects, codes and names say, as texts and plain values.
#pragma once

#include <krb5/krb5.h>

#include <cstdint>
#include <span>
#include <string>

#include "harrow/text/HideControls.h"

namespace morwen {

using Harrowlib201::HideControls;

// "alice@REALM", or "an unreadable name". Without control characters, as all texts here are; those that return one
// throw std::bad_alloc.
std::string PrincipalText(krb5_context i_context, krb5_const_principal i_principal);

// The library's own words for a code; the context adds what it knows about its last failure.
std::string ErrorWords(krb5_context i_context, krb5_error_code i_nCode);

// UTC, "2026-01-31 12:00:00 UTC".
std::string TimeText(int64_t i_nUtcSeconds);

// libkrb5's times are 32 bits without a sign since 2038 came into sight.
inline int64_t SecondsOf(krb5_timestamp i_nTime) noexcept {
    return static_cast<uint32_t>(i_nTime);
}

// The library's clock in seconds since 1970.
int64_t Now(krb5_context i_context) noexcept;

// The path behind a keytab's or ticket cache's name such as FILE:/etc/krb5.keytab; empty when it is not that of a file.
std::string PathOfKrb5Name(const std::string& i_name);

// A view of bytes in libkrb5's shape; the library does not write through it.
krb5_data DataOf(std::span<const uint8_t> i_bytes) noexcept;
std::span<const uint8_t> BytesOf(const krb5_data& i_data) noexcept;

}  // namespace morwen
