// A password, from the terminal or from a descriptor.
#pragma once

#include "harrow/text/SWCharString.h"

namespace morwen::doctor {

// Asks on the terminal, without echo, for a negative descriptor; else reads a line from it. Never from the command line
// or the environment, which others can see. Throws std::runtime_error when there is none, or a very long one.
Harrowlib201::SWCharString ReadSecretLine(int i_nDescriptor);

}  // namespace morwen::doctor
