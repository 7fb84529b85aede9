// The checks as another account would see them.
#pragma once

#include <string>

namespace morwen::doctor {

// The process becomes the account, with its groups, for good, and has no privileges left but, where they are asked for,
// the two that a service needs to act as its users. The tickets of the user who runs this stay at hand, in memory.
// Throws std::runtime_error when there is no such account or this process may not become it.
void BecomeAccount(const std::string& i_account, bool i_bToImpersonate);

}  // namespace morwen::doctor
