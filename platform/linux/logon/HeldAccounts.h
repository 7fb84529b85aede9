// Accounts that have just been looked up.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/identity/UnixAccount.h"

namespace morwen {

// A lookup reads the machine's account files or asks a directory, and a user's programs log on several times in a row.
// What is held is forgotten after a second, so that a change of the account, or of the rules that map names to
// accounts, is no later than that in a new logon; the identity of a logon that is done does not change anyway. That
// there is no account is not held. Any thread.
class HeldAccounts {
public:
    // Nothing when the account has not been looked up within the last second. Throws std::bad_alloc.
    static std::optional<UnixAccount> Get(const std::string& i_principal);
    // Throws std::bad_alloc.
    static void Hold(const std::string& i_principal, const UnixAccount& i_account);
};

}  // namespace morwen
