#include "platform/linux/ThreadCredentials.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace morwen {

namespace {

constexpr size_t kUsualGroups = 64;
constexpr auto kUnchanged = static_cast<unsigned>(-1);

using CapabilityData = std::array<__user_cap_data_struct, 2>;

long Checked(long i_nResult) {
    if (i_nResult < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    return i_nResult;
}

int ErrorOf(long i_nResult) noexcept {
    return i_nResult < 0 ? errno : 0;
}

int ReadCapabilities(CapabilityData& o_data) noexcept {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    return ErrorOf(syscall(SYS_capget, &header, o_data.data()));
}

long ReadGroups(std::vector<gid_t>& o_groups) noexcept {
    return syscall(SYS_getgroups, o_groups.size(), o_groups.data());
}

// Permitted and inheritable capabilities stay.
int SetEffectiveCapabilities(const std::array<uint32_t, 2>& i_aEffective) noexcept {
    CapabilityData data{};
    if (const int nError = ReadCapabilities(data); nError != 0) {
        return nError;
    }
    if (data[0].effective == i_aEffective[0] && data[1].effective == i_aEffective[1]) {
        return 0;
    }
    data[0].effective = i_aEffective[0];
    data[1].effective = i_aEffective[1];
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    return ErrorOf(syscall(SYS_capset, &header, data.data()));
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

// Whether the thread has this account and these effective capabilities now; no when it cannot be told.
bool ThreadHas(const UnixAccount& i_account, const std::array<uint32_t, 2>& i_aEffective) noexcept {
    CapabilityData data{};
    try {
        return ThreadCredentials::AccountOfThisThread() == i_account && ReadCapabilities(data) == 0 &&
               data[0].effective == i_aEffective[0] && data[1].effective == i_aEffective[1];
    } catch (...) {
        return false;
    }
}

int Become(const UnixAccount& i_account, const UnixAccount& i_now) noexcept {
    // Groups first and the user last, because the right to change groups goes with the user. What is the same already
    // is left alone: a service without privilege may still act as itself.
    int nError = i_account.m_groups != i_now.m_groups ? SetGroups(i_account.m_groups) : 0;
    if (nError == 0 && i_account.m_nGroup != i_now.m_nGroup) {
        nError = SetGroup(i_account.m_nGroup);
    }
    if (nError == 0 && i_account.m_nUser != i_now.m_nUser) {
        nError = SetUser(i_account.m_nUser);
    }
    // The kernel clears the capabilities when root becomes somebody else, and only then.
    return nError == 0 && i_now.m_nUser != 0 ? SetEffectiveCapabilities({}) : nError;
}

}  // namespace

UnixAccount ThreadCredentials::AccountOfThisThread() {
    UnixAccount account;
    // Checked too, because a filter can refuse them: what is put back later must not be an error's number.
    account.m_nUser = static_cast<uid_t>(Checked(syscall(SYS_geteuid)));
    account.m_nGroup = static_cast<gid_t>(Checked(syscall(SYS_getegid)));
    // Mostly one call: how many there are is asked only when they do not fit.
    account.m_groups.resize(kUsualGroups);
    long nRead = ReadGroups(account.m_groups);
    if (nRead < 0 && errno == EINVAL) {
        // One more: with room for none only their number would be told.
        account.m_groups.resize(static_cast<size_t>(Checked(syscall(SYS_getgroups, 0, nullptr))) + 1);
        nRead = ReadGroups(account.m_groups);
    }
    account.m_groups.resize(static_cast<size_t>(Checked(nRead)));
    account.SortGroups();
    return account;
}

ThreadCredentials ThreadCredentials::OfThisThread() {
    ThreadCredentials credentials;
    credentials.m_account = AccountOfThisThread();
    CapabilityData data{};
    if (const int nError = ReadCapabilities(data); nError != 0) {
        throw std::system_error(nError, std::generic_category());
    }
    credentials.m_aEffectiveCapabilities = {data[0].effective, data[1].effective};
    return credentials;
}

int ThreadCredentials::Exchange(const UnixAccount& i_account, bool& io_bStuck) const noexcept {
    if (i_account == m_account) {
        return 0;  // the service acts as itself, and keeps what it has
    }
    int nError = Become(i_account, m_account);
    // Read back, because a filter or a security module can answer "done" and do nothing. What cannot be read is not
    // known to have taken, so it is undone.
    bool bTaken = nError == 0 && ThreadHas(i_account, {});
    if (nError == 0 && !bTaken) {  // a thread of root whose capabilities do not follow the user
        nError = SetEffectiveCapabilities({});
        bTaken = nError == 0 && ThreadHas(i_account, {});
    }
    if (bTaken) {
        return 0;
    }
    io_bStuck = Restore() != 0;
    return nError != 0 ? nError : EPERM;
}

int ThreadCredentials::Restore(const UnixAccount* i_pNow) const noexcept {
    // The user first: the real id allows it without any privilege, and for root it brings the capabilities back.
    int nError = SetUser(m_account.m_nUser);
    const auto keepFirst = [&nError](int i_nError) { nError = nError == 0 ? i_nError : nError; };
    keepFirst(SetGroup(m_account.m_nGroup));
    if (m_account.m_nUser != 0) {
        keepFirst(SetEffectiveCapabilities(m_aEffectiveCapabilities));
    }
    if (i_pNow == nullptr || i_pNow->m_groups != m_account.m_groups) {
        // A service without the right to change groups has kept its own, which shows below.
        keepFirst(SetGroups(m_account.m_groups));
    }
    if (ThreadHas(m_account, m_aEffectiveCapabilities)) {
        return 0;
    }
    // Once more, with the rights that the thread may have got back meanwhile.
    keepFirst(SetEffectiveCapabilities(m_aEffectiveCapabilities));
    keepFirst(SetGroup(m_account.m_nGroup));
    keepFirst(SetGroups(m_account.m_groups));
    return ThreadHas(m_account, m_aEffectiveCapabilities) ? 0 : nError != 0 ? nError : EPERM;
}

}  // namespace morwen
