// The default credential cache and the ticket in it.
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

#include "tools/doctor/case/FileLook.h"
#include "tools/doctor/case/FreshTickets.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

constexpr const char* kGetTickets = "kinit (and KRB5CCNAME must name the same cache for kinit and the program)";

// False when nothing more can be said of the cache.
bool LookAtFile(Case& io_case, const std::string& i_name) {
    const std::string path = PathOfKrb5Name(i_name);
    if (path.empty()) {
        return true;
    }
    Report& report = io_case.m_report;
    const std::string lookedAt = "the credential cache " + i_name + ", as " + ThisAccount();
    const FileLook file(path);
    if (file.m_nError == ENOENT || file.m_nError == ENOTDIR) {
        report.Fail("cache-missing", lookedAt, "there is no such file", kGetTickets);
        return false;
    }
    if (file.m_nError != 0) {
        report.Fail("cache-unreadable", lookedAt, std::generic_category().message(file.m_nError),
                    "run as the owner, or get tickets of this account's own: unset KRB5CCNAME; kinit");
        return false;
    }
    if (file.m_status.st_uid != geteuid()) {
        report.Warn("cache-owner", lookedAt, "it belongs to " + file.Text(),
                    "unset KRB5CCNAME; kinit (or chown it, if the tickets are meant to be this account's)");
    } else if ((file.m_status.st_mode & 077U) != 0) {
        report.Warn("cache-exposed", lookedAt, file.Text(), "chmod 600 " + Quoted(path));
    }
    return true;
}

void LookAtTicket(Case& io_case, const std::string& i_client, const krb5_creds& i_ticket, const std::string& i_name) {
    Report& report = io_case.m_report;
    const std::string lookedAt = "the ticket of " + i_client + " in " + i_name;
    const int64_t nEnd = SecondsOf(i_ticket.times.endtime);
    // By the KDC's clock, which decides: with a wrong clock here every ticket may look old.
    if (nEnd <= std::time(nullptr) + io_case.m_nClockOffset) {
        report.Fail("ticket-expired", lookedAt, "it ended at " + TimeText(nEnd), "kinit " + Quoted(i_client));
        return;
    }
    io_case.m_bTickets = true;
    const bool bForwardable = (i_ticket.ticket_flags & TKT_FLG_FORWARDABLE) != 0;
    const std::string found = "it ends at " + TimeText(nEnd) + (bForwardable ? ", forwardable" : ", not forwardable");
    if (io_case.m_options.m_bDelegation && !bForwardable) {
        report.Fail(
            "ticket-not-forwardable", lookedAt, found,
            "kinit -f " + Quoted(i_client) +
                "; for all logons: forwardable = true in [libdefaults] (the realm may forbid it: kadmin modprinc "
                "+allow_forwardable " +
                Quoted(i_client) + ")");
    } else {
        report.Ok("cache", lookedAt, found);
    }
}

// Whether a process that keeps tickets could not be talked to.
bool IsAtTheSocket(krb5_error_code i_nCode) {
    return i_nCode == ECONNREFUSED || i_nCode == ENOENT || i_nCode == EACCES || i_nCode == ECONNRESET ||
           i_nCode == EPIPE || i_nCode == KRB5_KCM_RPC_ERROR;
}

}  // namespace

void CheckCache(Case& io_case) {
    if (!io_case.m_cacheFault.empty() && io_case.m_pLogon == nullptr) {
        io_case.m_report.Fail(
            "cache-planted", "the credential cache " + io_case.m_plantedCache + ", as " + ThisAccount(),
            "it " + io_case.m_cacheFault,
            "find out who has put it there, remove it, and kinit; or name the cache that is meant in KRB5CCNAME");
        return;
    }
    const krb5_context context = io_case.Context();
    const char* const pszName = krb5_cc_default_name(context);
    const std::string name = pszName != nullptr ? pszName : "";
    if (!LookAtFile(io_case, name)) {
        return;
    }
    Krb5CacheOwner cache(context);
    Krb5Principal client(context);
    krb5_error_code nCode = krb5_cc_default(context, cache.Receive());
    if (nCode == 0) {
        nCode = krb5_cc_get_principal(context, cache.get(), client.Receive());
    }
    if (nCode == KRB5_KCM_NO_SERVER || (nCode != 0 && name.starts_with("KCM:") && IsAtTheSocket(nCode))) {
        io_case.m_report.Fail(
            "cache-service", "the credential cache " + name, io_case.Words(nCode),
            "systemctl enable --now sssd-kcm.socket (package sssd-kcm); or files: default_ccache_name "
            "= FILE:/tmp/krb5cc_%{uid} in [libdefaults], and kinit");
        return;
    }
    if (nCode != 0) {
        const bool bNone = nCode == KRB5_FCC_NOFILE || nCode == KRB5_CC_NOTFOUND;
        io_case.m_report.Fail(bNone ? "cache-missing" : "cache-broken", "the credential cache " + name,
                              io_case.Words(nCode), bNone ? kGetTickets : "kdestroy; kinit");
        return;
    }
    const std::string clientText = PrincipalText(context, client.get());
    krb5_creds ticket{};
    nCode = OwnTicket(context, cache.get(), client.get(), ticket);
    if (nCode != 0) {
        io_case.m_report.Fail("ticket-missing", "the ticket of " + clientText + " in " + name, io_case.Words(nCode),
                              "kinit " + Quoted(clientText));
        return;
    }
    LookAtTicket(io_case, clientText, ticket, name);
    krb5_free_cred_contents(context, &ticket);
}

void FindTickets(Case& io_case) {
    const krb5_context context = io_case.Context();
    Krb5CacheOwner cache(context);
    Krb5Principal client(context);
    krb5_creds ticket{};
    if (krb5_cc_default(context, cache.Receive()) == 0 &&
        krb5_cc_get_principal(context, cache.get(), client.Receive()) == 0 &&
        OwnTicket(context, cache.get(), client.get(), ticket) == 0) {
        io_case.m_bTickets = SecondsOf(ticket.times.endtime) > std::time(nullptr) + io_case.m_nClockOffset;
        krb5_free_cred_contents(context, &ticket);
    }
}

}  // namespace morwen::doctor
