// The status that a libkrb5 code stands for: the one table of the layer.
#pragma once

#include <krb5/krb5.h>

#include "platform/OsTypes.h"

namespace morwen {

// Zero gives SEC_E_OK, an unknown code SEC_E_INTERNAL_ERROR.
SECURITY_STATUS StatusFromKrb5(krb5_error_code i_nCode) noexcept;

}  // namespace morwen
