// What the service was before a thread acted as somebody else.
#pragma once

#include <optional>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/linux/identity/ThreadCredentials.h"

namespace morwen {

// A thread that is made by an impersonating one begins as that user, and has nothing of its own to go back to. Any
// method on any thread.
class ServiceRecord {
public:
    // A thread that is the service, with these credentials, is about to act as the user. Throws std::bad_alloc.
    static void Keep(const ThreadCredentials& i_service, uid_t i_nUser);

    // Whether the account, which the calling thread has, is the service's: not one that the host has given the thread,
    // or that it was made with.
    static bool IsService(const UnixAccount& i_account);

    // Whether the calling thread, which impersonates nobody, began as one of the users that threads have acted as, or
    // nobody can tell. A thread that is anybody else, or for good, is so by the host's own doing.
    static bool IsInherited() noexcept;

    // Makes such a thread the service, and leaves others alone. 0, or an errno.
    static int RestoreInherited() noexcept;
};

}  // namespace morwen
