// The texts that explain an error to a person.
#pragma once

#include <span>

#include "harrow/log/SResManager.h"

namespace morwen {

std::span<const Harrowlib201::SMessage> MessageTable() noexcept;

}  // namespace morwen
