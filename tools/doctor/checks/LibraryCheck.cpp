// The library itself, up to where a peer would be needed.
#include <algorithm>
#include <array>

#include "tools/doctor/checks/Checks.h"
#include "tools/doctor/logon/Library.h"

namespace morwen::doctor {

namespace {

bool HasBadKeytab(const Report& i_report) {
    static constexpr std::array<const char*, 4> kBad{"keytab-missing", "keytab-unreadable", "keytab-broken",
                                                     "keytab-empty"};
    return std::any_of(kBad.begin(), kBad.end(), [&](const char* i_pszId) { return i_report.Has(i_pszId); });
}

// Both halves in this process, as far as there are tickets. Throws host::Error where the library fails.
void TryLogon(const Case& i_case) {
    const Options& options = i_case.m_options;
    const Library library(options.m_bImpersonate);
    if (options.m_ssPassword) {
        const bool bDomain = options.m_user.find('\\') != std::string::npos;
        const host::ClientLogin client(host::Parameters().Set(SSO_KEY_SPN, options.m_spn),
                                       (bDomain ? "" : "\\") + options.m_user,
                                       host::Narrow(options.m_ssPassword->c_str()));
        return;
    }
    if (!options.m_bServer) {
        const host::ClientLogin client(options.m_spn);
        return;
    }
    host::ServerLogin server;
    if (!i_case.m_bTickets) {
        server.Accept(host::Token(1));  // the keys are looked at before the token
        return;
    }
    host::ClientLogin client(options.m_spn);
    client.Continue(server.Accept(client.NextToken()));
    if (options.m_bImpersonate) {
        server.Close();
        const host::Context context = server.TakeContext();
        context.Impersonate().Revert();
    }
}

}  // namespace

void CheckLibrary(Case& io_case) {
    Report& report = io_case.m_report;
    const std::string lookedAt = io_case.m_options.m_bServer ? "a logon with both halves in this process"
                                                             : "the first half of a logon by the library";
    const bool bPassword = io_case.m_options.m_ssPassword && !io_case.m_bTickets;
    const bool bSilent = report.Has("kdc-silent") && !io_case.CanAsk();
    const bool bNothingToTry = io_case.m_options.m_bServer && !io_case.m_bTickets && !HasBadKeytab(report);
    if (io_case.m_options.m_spn.empty() || bSilent || bPassword || bNothingToTry) {
        report.Skip("logon", lookedAt,
                    io_case.m_options.m_spn.empty() ? "no principal was given (--spn)"
                    : bPassword ? "a refused password is tried once only, for it counts against the account"
                    : bSilent   ? "it would wait for the silent KDC"
                                : "there are no tickets to try with (kinit as a user)");
        return;
    }
    try {
        TryLogon(io_case);
        report.Ok("logon", lookedAt, "it works");
    } catch (const host::Error& error) {
        const std::string words = WordsOf(error);
        if (report.Count(Status::Error) == 0) {
            report.Fail("logon-fails", lookedAt, words, "run this again with --trace and read its last lines");
        } else {
            report.Skip("logon", lookedAt, "it fails too; its words stand with the first error");
        }
        report.SetLibraryWords(words);
    }
}

}  // namespace morwen::doctor
