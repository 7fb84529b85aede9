// One typed value.
#pragma once

#include <cstdint>

#include "harrow/text/SWCharString.h"
#include "morwen/morwenplugin.h"

namespace morwen {

using Harrowlib201::SString;
using Harrowlib201::SWCharString;
using Harrowlib201::operator""_ss;

struct Parameter {
    // A chain may carry any value in the low eight bits; one that is none of these matches no typed getter.
    enum Type : uint8_t { String = SSO_PARAMETER_STRING, Long = SSO_PARAMETER_LONG, Bool = SSO_PARAMETER_BOOL };

    SWCharString m_ssKey;
    SWCharString m_ssValue;  // the value as text, whatever its type
    Type m_eType = String;
};

}  // namespace morwen
