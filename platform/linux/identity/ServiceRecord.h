// What the service was before a thread acted as somebody else.
#pragma once

#include "platform/linux/identity/ThreadCredentials.h"

namespace morwen {

// A thread that is made by an impersonating one begins as that user, and has nothing of its own to go back to.

// Notes that a thread which is the service, with these credentials, is about to act as the user. Throws std::bad_alloc.
void KeepServiceRecord(const ThreadCredentials& i_service, uid_t i_nUser);

// Whether the account, which the calling thread has, is the service's: not one that the host has given the thread, or
// that it was made with.
bool IsServiceAccount(const UnixAccount& i_account);

// Whether the calling thread, which impersonates nobody, began as one of the users that threads have acted as, or
// nobody can tell. A thread that is anybody else, or for good, is so by the host's own doing.
bool IsThreadInherited() noexcept;

// Makes such a thread the service, and leaves others alone. 0, or an errno.
int RestoreInheritedThread() noexcept;

}  // namespace morwen
