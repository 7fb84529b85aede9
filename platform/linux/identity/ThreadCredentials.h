// What the kernel knows the calling thread by: effective ids, supplementary groups, capabilities.
#pragma once

#include "platform/linux/identity/Capabilities.h"
#include "platform/linux/identity/UnixAccount.h"

namespace morwen {

// Raw system calls throughout: the functions of the C library change every thread of the process. Only effective ids
// change; the real and saved ones stay the service's, so that the way back is open and the user's own processes cannot
// signal the thread.
struct ThreadCredentials {
    UnixAccount m_account;
    Capabilities m_capabilities;
    // To read groups back into: whom a thread has become must be told without asking for memory.
    std::vector<gid_t> m_room;

    friend bool operator==(const ThreadCredentials& i_left, const ThreadCredentials& i_right) noexcept {
        return i_left.m_account == i_right.m_account && i_left.m_capabilities == i_right.m_capabilities;
    }

    // Those of the calling thread. Throws std::bad_alloc, std::system_error.
    static ThreadCredentials OfThisThread();
    // Only its account. Throws the same.
    static UnixAccount AccountOfThisThread();

    // The calling thread, which has these credentials, goes on as the account, with the capabilities of one that acts.
    // 0, or an errno (ENOMEM only the first time for an account) and the thread as it was, or an errno and io_bStuck
    // set: somewhere between, and not even these credentials could be put back.
    int Exchange(const UnixAccount& i_account, bool& io_bStuck) noexcept;

    // The calling thread gets these credentials back, whatever it has now. 0, or an errno. Whom it is thought to be now
    // only saves calls: what it has in the end is read back.
    int Restore(const UnixAccount* i_pNow = nullptr) noexcept;

private:
    // Whether the calling thread has this account and these capabilities; no when it cannot be told.
    bool IsThisThread(const UnixAccount& i_account, const Capabilities& i_capabilities) noexcept;
};

}  // namespace morwen
