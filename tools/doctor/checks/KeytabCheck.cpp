// Server: the keytab's file and keys, and the keys against those of the KDC.
#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

#include "tools/doctor/case/EncTypes.h"
#include "tools/doctor/case/FileLook.h"
#include "tools/doctor/case/FreshTickets.h"
#include "tools/doctor/case/KeytabKeys.h"
#include "tools/doctor/checks/Checks.h"
#include "tools/doctor/checks/StaleTicket.h"
#include "tools/doctor/checks/UnknownService.h"

namespace morwen::doctor {

namespace {

// The command that writes the service's current keys.
std::string AddKeys(const std::string& i_spn, const std::string& i_keytab) {
    const std::string path = PathOfKrb5Name(i_keytab);
    const std::string file = Quoted(path.empty() ? i_keytab : path);
    const std::string name = i_spn.empty() ? "SERVICE/HOST" : Quoted(i_spn);
    return "kadmin ktadd -k " + file + " " + name + "; in a directory: msktutil --update --service " + name + " -k " +
           file;
}

bool LookAtFile(Case& io_case, const std::string& i_name) {
    const std::string path = PathOfKrb5Name(i_name);
    if (path.empty()) {
        return true;
    }
    Report& report = io_case.m_report;
    const std::string lookedAt = "the keytab " + i_name + ", as " + ThisAccount();
    const FileLook file(path);
    if (file.m_nError == ENOENT || file.m_nError == ENOTDIR) {
        report.Fail("keytab-missing", lookedAt, "there is no such file",
                    AddKeys(io_case.m_options.m_spn, i_name) + "; or set KRB5_KTNAME for the service");
        return false;
    }
    if (file.m_nError != 0) {
        const bool bSeen = file.m_status.st_nlink != 0;
        report.Fail(
            "keytab-unreadable", lookedAt,
            std::generic_category().message(file.m_nError) + (bSeen ? "; it belongs to " + file.Text() : ""),
            "chown " + (io_case.m_options.m_account.empty() ? "SERVICE-ACCOUNT" : Quoted(io_case.m_options.m_account)) +
                " " + Quoted(path) + " && chmod 600 " + Quoted(path));
        return false;
    }
    if ((file.m_status.st_mode & 07U) != 0) {
        report.Warn("keytab-exposed", lookedAt, file.Text(), "chmod 600 " + Quoted(path));
    }
    return true;
}

// Whether the library takes tickets with at least one of the keys, and whether any is worth having.
void LookAtTypes(Case& io_case, const std::string& i_keytab, const KeytabKeys& i_keys,
                 const std::vector<const krb5_keytab_entry*>& i_entries) {
    const std::vector<krb5_enctype> taken = TypesOfLibrary(io_case);
    bool bTaken = i_entries.empty();
    bool bGood = i_entries.empty();
    for (const krb5_keytab_entry* const pEntry : i_entries) {
        bTaken = bTaken || std::find(taken.begin(), taken.end(), pEntry->key.enctype) != taken.end();
        bGood = bGood || !IsWeak(pEntry->key.enctype);
    }
    const std::string lookedAt = "the types of the keys in " + i_keytab;
    const std::string remedy = AddKeys(io_case.m_options.m_spn, i_keytab) +
                               " (aes256-cts must be among the account's types); if it must stay so: allow_rc4 = true "
                               "in [libdefaults]";
    if (!bTaken) {
        io_case.m_report.Fail("keytab-weak", lookedAt, i_keys.Text(i_entries) + ", none of which is permitted", remedy);
    } else if (!bGood) {
        io_case.m_report.Warn("keytab-weak", lookedAt, i_keys.Text(i_entries) + ", permitted by configuration", remedy);
    }
}

// Something to ask the KDC with: the user's ticket, else one that a key of the keytab gets.
krb5_error_code GetTickets(const Case& i_case, FreshTickets& io_tickets, const KeytabKeys& i_keys,
                           krb5_principal i_service) {
    constexpr size_t kMostTries = 4;
    if (i_case.m_bTickets) {
        return io_tickets.TakeFromDefaultCache();
    }
    krb5_error_code nCode = io_tickets.TakeWithKey(i_keys.Keytab(), i_service);
    // In a directory the account has another name than the service, and only the account may log on.
    for (const krb5_principal principal : i_keys.Principals()) {
        if (nCode == 0 || i_keys.Principals().size() > kMostTries) {
            break;
        }
        if (io_tickets.TakeWithKey(i_keys.Keytab(), principal) == 0) {
            return 0;
        }
    }
    return nCode;
}

void CompareKeys(Case& io_case, const KeytabKeys& i_keys, const std::string& i_keytab, krb5_principal i_service,
                 const krb5_creds& i_ticket) {
    const krb5_context context = io_case.Context();
    Krb5Ticket ticket(context);
    krb5_error_code nCode = krb5_decode_ticket(&i_ticket.ticket, ticket.Receive());
    if (nCode != 0) {
        io_case.m_report.Skip("keytab", "the KDC's ticket for the service", io_case.Words(nCode));
        return;
    }
    const krb5_enc_data& part = ticket->enc_part;
    const auto entries = i_keys.Of(i_service);
    constexpr krb5_kvno kShort = 0xFF;  // old keytabs keep no more of a version
    const auto has = [&part](const krb5_keytab_entry* i_p) {
        return i_p->vno == part.kvno || i_p->vno == (part.kvno & kShort);
    };
    const bool bVersion = std::any_of(entries.begin(), entries.end(), has);
    const std::string kdc = "the KDC uses version " + std::to_string(part.kvno) + " " + TypeText(part.enctype);
    const std::string lookedAt = "the keys of " + PrincipalText(context, i_service) + " against the KDC's";
    const std::string found = "the keytab has " + i_keys.Text(entries) + "; " + kdc;
    const std::string remedy = AddKeys(io_case.m_options.m_spn, i_keytab);
    nCode = krb5_server_decrypt_ticket_keytab(context, i_keys.Keytab(), ticket.get());
    if (nCode == 0 && bVersion) {
        io_case.m_report.Ok("keytab", lookedAt, found);
        std::set<krb5_kvno> held{part.kvno};
        for (const krb5_keytab_entry* const pEntry : entries) {
            held.insert(pEntry->vno);
        }
        LookForStaleTicket(io_case, i_service, held, "the keytab has " + i_keys.Text(entries));
    } else if (entries.empty()) {
        io_case.m_report.Fail("keytab-no-spn", lookedAt, "none of its keys is the service's; " + kdc, remedy);
    } else if (!bVersion) {
        io_case.m_report.Fail("keytab-kvno", lookedAt, found, remedy);
    } else if (std::none_of(entries.begin(), entries.end(), [&](const krb5_keytab_entry* i_p) {
                   return has(i_p) && i_p->key.enctype == part.enctype;
               })) {
        io_case.m_report.Fail("keytab-enctype", lookedAt, found, remedy + " (with all types that the KDC has: no -e)");
    } else {
        io_case.m_report.Fail("keytab-key", lookedAt, found + "; " + io_case.Words(nCode),
                              remedy + " (a key made with another password or salt has the same version)");
    }
}

void CompareWithKdc(Case& io_case, const KeytabKeys& i_keys, const std::string& i_keytab, krb5_principal i_service) {
    const std::string name = PrincipalText(io_case.Context(), i_service);
    const std::string lookedAt = "the keys of " + name + " against the KDC's";
    if (!io_case.CanAsk() || io_case.m_nClockOffset != 0) {
        io_case.m_report.Skip("keytab", lookedAt,
                              io_case.CanAsk() ? "the clocks differ too much to ask" : "there is no KDC to ask");
        return;
    }
    FreshTickets tickets(io_case);
    Krb5Credentials credentials(io_case.Context());
    krb5_error_code nCode = GetTickets(io_case, tickets, i_keys, i_service);
    if (nCode == KRB5KDC_ERR_PREAUTH_FAILED || nCode == KRB5KRB_AP_ERR_BAD_INTEGRITY) {
        io_case.m_report.Fail("keytab-key", lookedAt, "the KDC refuses the keytab's key: " + io_case.Words(nCode),
                              AddKeys(io_case.m_options.m_spn, i_keytab) +
                                  "; with a user's ticket (kinit) this program also tells the versions");
        return;
    }
    if (nCode != 0) {
        io_case.m_report.Skip("keytab", lookedAt,
                              "no ticket to ask with: " + io_case.Words(nCode) + "; kinit as a user and try again");
        return;
    }
    nCode = tickets.Get(i_service, credentials);
    if (nCode == KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN) {
        SayUnknown(io_case, &tickets, i_service, io_case.Words(nCode));
    } else if (nCode != 0) {
        io_case.m_report.Skip("keytab", lookedAt, "no ticket for it: " + io_case.Words(nCode));
    } else {
        CompareKeys(io_case, i_keys, i_keytab, i_service, *credentials.get());
    }
}

}  // namespace

void CheckKeytab(Case& io_case) {
    const krb5_context context = io_case.Context();
    Report& report = io_case.m_report;
    const std::string name = DefaultKeytab(context);
    const std::string lookedAt = "the keytab " + name;
    if (!LookAtFile(io_case, name)) {
        return;
    }
    KeytabKeys keys(context);
    if (const krb5_error_code nCode = keys.Read(name); nCode != 0) {
        report.Fail("keytab-broken", lookedAt, io_case.Words(nCode),
                    "move it away; " + AddKeys(io_case.m_options.m_spn, name));
        return;
    }
    if (keys.IsEmpty()) {
        report.Fail("keytab-empty", lookedAt, "it holds no key", AddKeys(io_case.m_options.m_spn, name));
        return;
    }
    std::string principals;
    for (const krb5_principal principal : keys.Principals()) {
        Enumerate(principals, PrincipalText(context, principal) + ": " + keys.Text(keys.Of(principal)), "; ");
    }
    report.Ok("keytab", lookedAt, principals);
    const Krb5Principal service = ServiceOf(io_case);
    LookAtTypes(io_case, name, keys, keys.Of(service ? service.get() : nullptr));
    if (!service) {
        report.Skip("keytab", "the service's keys", "no principal was given (--spn)");
        return;
    }
    if (service->realm.length == 0 && !io_case.m_realm.empty()) {
        krb5_set_principal_realm(context, service.get(), io_case.m_realm.c_str());
    }
    if (keys.Of(service.get()).empty() && !io_case.m_bTickets) {
        if (!SayUnknown(io_case, nullptr, service.get(), name + " has no key of it")) {
            report.Fail("keytab-no-spn", lookedAt, "no key of " + PrincipalText(context, service.get()),
                        AddKeys(io_case.m_options.m_spn, name));
        }
        return;
    }
    CompareWithKdc(io_case, keys, name, service.get());
}

}  // namespace morwen::doctor
