#include "platform/linux/identity/ThreadCredentials.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <span>
#include <system_error>

namespace morwen {

namespace {

constexpr size_t kUsualGroups = 64;
constexpr auto kUnchanged = static_cast<unsigned>(-1);

long Checked(long i_nResult) {
    if (i_nResult < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    return i_nResult;
}

int ErrorOf(long i_nResult) noexcept {
    return i_nResult < 0 ? errno : 0;
}

long ReadGroups(std::vector<gid_t>& o_room) noexcept {
    return syscall(SYS_getgroups, o_room.size(), o_room.data());
}

// The account, and the room that its groups were read into.
UnixAccount ReadAccount(std::vector<gid_t>& o_room) {
    UnixAccount account;
    // Checked too, because a filter can refuse them: what is put back later must not be an error's number.
    account.m_nUser = static_cast<uid_t>(Checked(syscall(SYS_geteuid)));
    account.m_nGroup = static_cast<gid_t>(Checked(syscall(SYS_getegid)));
    // Mostly one call: how many there are is asked only when they do not fit.
    o_room.resize(kUsualGroups);
    long nRead = ReadGroups(o_room);
    if (nRead < 0 && errno == EINVAL) {
        // One more: with room for none only their number would be told.
        o_room.resize(static_cast<size_t>(Checked(syscall(SYS_getgroups, 0, nullptr))) + 1);
        nRead = ReadGroups(o_room);
    }
    account.m_groups.assign(o_room.begin(), o_room.begin() + Checked(nRead));
    account.SortGroups();
    return account;
}

int SetUser(uid_t i_nUser) noexcept {
    return ErrorOf(syscall(SYS_setresuid, kUnchanged, i_nUser, kUnchanged));
}

int SetGroup(gid_t i_nGroup) noexcept {
    return ErrorOf(syscall(SYS_setresgid, kUnchanged, i_nGroup, kUnchanged));
}

int SetGroups(const std::vector<gid_t>& i_groups) noexcept {
    return ErrorOf(syscall(SYS_setgroups, i_groups.size(), i_groups.data()));
}

// Whether it is the kernel that sees to the capabilities of the service: root's come and go with the user.
bool IsLeftToKernel(const ThreadCredentials& i_service) noexcept {
    return i_service.m_account.m_nUser == 0 &&
           i_service.m_capabilities.m_nInheritable == i_service.m_capabilities.WhileActing().m_nInheritable;
}

int Become(const UnixAccount& i_account, const ThreadCredentials& i_service) noexcept {
    const UnixAccount& now = i_service.m_account;
    // Groups first and the user last, because the right to change groups goes with the user. What is the same already
    // is left alone: a service without privilege may still act as itself.
    int nError = i_account.m_groups != now.m_groups ? SetGroups(i_account.m_groups) : 0;
    if (nError == 0 && i_account.m_nGroup != now.m_nGroup) {
        nError = SetGroup(i_account.m_nGroup);
    }
    if (nError == 0 && i_account.m_nUser != now.m_nUser) {
        nError = SetUser(i_account.m_nUser);
    }
    return nError == 0 && !IsLeftToKernel(i_service) ? i_service.m_capabilities.WhileActing().Set() : nError;
}

}  // namespace

UnixAccount ThreadCredentials::AccountOfThisThread() {
    std::vector<gid_t> room;
    return ReadAccount(room);
}

ThreadCredentials ThreadCredentials::OfThisThread() {
    ThreadCredentials credentials;
    credentials.m_account = ReadAccount(credentials.m_room);
    if (const int nError = Capabilities::Read(credentials.m_capabilities); nError != 0) {
        throw std::system_error(nError, std::generic_category());
    }
    return credentials;
}

bool ThreadCredentials::IsThisThread(const UnixAccount& i_account, const Capabilities& i_capabilities) noexcept {
    const long nUser = syscall(SYS_geteuid);
    const long nGroup = syscall(SYS_getegid);
    const long nGroups = ReadGroups(m_room);  // more than there is room for are somebody else's
    Capabilities capabilities;
    if (nUser < 0 || nGroup < 0 || nGroups < 0 || Capabilities::Read(capabilities) != 0) {
        return false;
    }
    std::sort(m_room.begin(), m_room.begin() + nGroups);
    return i_account.Is(static_cast<uid_t>(nUser), static_cast<gid_t>(nGroup),
                        std::span(m_room).first(static_cast<size_t>(nGroups))) &&
           capabilities == i_capabilities;
}

int ThreadCredentials::Exchange(const UnixAccount& i_account, bool& io_bStuck) noexcept {
    const Capabilities acting = m_capabilities.WhileActing();
    if (i_account == m_account && m_capabilities == acting) {
        return 0;
    }
    try {
        m_room.resize(std::max(m_room.size(), i_account.m_groups.size()));
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
    if (!m_capabilities.CanComeBack()) {
        return EPERM;
    }
    // A user with the service's account is that already: only the capabilities are none of the user's.
    int nError = i_account == m_account ? acting.Set() : Become(i_account, *this);
    // Read back, because a filter or a security module can answer "done" and do nothing. What cannot be read is not
    // known to have taken, so it is undone.
    bool bTaken = nError == 0 && IsThisThread(i_account, acting);
    if (nError == 0 && !bTaken) {  // a thread of root whose capabilities do not follow the user
        nError = acting.Set();
        bTaken = nError == 0 && IsThisThread(i_account, acting);
    }
    if (bTaken) {
        return 0;
    }
    io_bStuck = Restore() != 0;
    return nError != 0 ? nError : EPERM;
}

int ThreadCredentials::Restore(const UnixAccount* i_pNow) noexcept {
    // The user first: the real id allows it without any privilege, and for root it brings the capabilities back.
    int nError = SetUser(m_account.m_nUser);
    const auto keepFirst = [&nError](int i_nError) { nError = nError == 0 ? i_nError : nError; };
    keepFirst(SetGroup(m_account.m_nGroup));
    if (!IsLeftToKernel(*this)) {
        keepFirst(m_capabilities.Set());
    }
    if (i_pNow == nullptr || i_pNow->m_groups != m_account.m_groups) {
        // A service without the right to change groups has kept its own, which shows below.
        keepFirst(SetGroups(m_account.m_groups));
    }
    if (IsThisThread(m_account, m_capabilities)) {
        return 0;
    }
    // Once more, with the rights that the thread may have got back meanwhile.
    keepFirst(m_capabilities.Set());
    keepFirst(SetGroup(m_account.m_nGroup));
    keepFirst(SetGroups(m_account.m_groups));
    keepFirst(SetUser(m_account.m_nUser));
    keepFirst(m_capabilities.Set());
    return IsThisThread(m_account, m_capabilities) ? 0 : nError != 0 ? nError : EPERM;
}

}  // namespace morwen
