// The checks as another account would see them.
#include "tools/doctor/ServiceAccount.h"

#include <grp.h>
#include <krb5/krb5.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "platform/linux/keys/DefaultCache.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen::doctor {

namespace {

constexpr const char* kCache = "MEMORY:morwen-doctor";  // as long as the process

// The default cache's tickets, if there are any that can be read, and the library itself would take them.
void KeepTickets() {
    krb5_context context = nullptr;
    if (krb5_init_context(&context) != 0) {
        return;
    }
    const char* const pszName = NamedCache() == nullptr ? krb5_cc_default_name(context) : nullptr;
    if (pszName == nullptr || FaultOfDefaultCache(pszName).empty()) {
        Krb5CacheOwner from(context);
        Krb5CacheOwner to(context);
        Krb5Principal client(context);
        if (krb5_cc_default(context, from.Receive()) == 0 &&
            krb5_cc_get_principal(context, from.get(), client.Receive()) == 0 &&
            krb5_cc_resolve(context, kCache, to.Receive()) == 0 &&
            krb5_cc_initialize(context, to.get(), client.get()) == 0 &&
            krb5_cc_copy_creds(context, from.get(), to.get()) == 0) {
            setenv("KRB5CCNAME", kCache, 1);
        }
    }
    krb5_free_context(context);
}

// Root's would be kept over the change of ids; these alone stay.
bool KeepCapabilities(bool i_bToImpersonate) {
    const uint32_t nSet = i_bToImpersonate ? 1U << CAP_SETUID | 1U << CAP_SETGID : 0U;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const std::array<__user_cap_data_struct, 2> sets{{{nSet, nSet, 0}, {0, 0, 0}}};
    return syscall(SYS_capset, &header, sets.data()) == 0;
}

}  // namespace

void BecomeAccount(const std::string& i_account, bool i_bToImpersonate) {
    errno = 0;
    const passwd* const pRecord = getpwnam(i_account.c_str());
    if (pRecord == nullptr) {
        throw std::runtime_error("there is no account " + i_account + " (getent passwd)");
    }
    const uid_t nUser = pRecord->pw_uid;
    const gid_t nGroup = pRecord->pw_gid;
    if (nUser == geteuid()) {
        return;
    }
    if (geteuid() != 0) {
        throw std::runtime_error("only root can look as another account does: run it with sudo");
    }
    KeepTickets();
    if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || initgroups(i_account.c_str(), nGroup) != 0 ||
        setresgid(nGroup, nGroup, nGroup) != 0 || setresuid(nUser, nUser, nUser) != 0 ||
        !KeepCapabilities(i_bToImpersonate)) {
        throw std::runtime_error("becoming " + i_account + ": " + std::generic_category().message(errno));
    }
}

}  // namespace morwen::doctor
