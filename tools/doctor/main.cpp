// morwen-doctor: says what is wrong with a Kerberos set-up, and how to fix it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdlib>
#include <iostream>

#include "tools/doctor/SecretLine.h"
#include "tools/doctor/ServiceAccount.h"
#include "tools/doctor/checks/Checks.h"
#include "tools/doctor/logon/LogonCommands.h"
#include "tools/doctor/logon/TraceLog.h"
#include "tools/doctor/report/ReportWriter.h"

namespace morwen::doctor {

namespace {

constexpr int kFine = 0;
constexpr int kWrong = 1;
constexpr int kUsage = 2;

void CheckAll(Case& io_case) {
    CheckConfiguration(io_case);
    if (!io_case.m_pContext) {
        return;
    }
    CheckHost(io_case);
    CheckKdcs(io_case);
    // A service has no tickets of its own as a rule; a user's are of use for comparing keys.
    if (!io_case.m_options.m_bServer) {
        if (!io_case.m_options.m_ssPassword || CheckPassword(io_case)) {
            CheckCache(io_case);
        }
        CheckService(io_case);
    } else {
        FindTickets(io_case);
        CheckKeytab(io_case);
        CheckReplayCache(io_case);
        CheckAccount(io_case);
        CheckSecondHop(io_case);
    }
    CheckLibrary(io_case);
}

void ListProblems() {
    for (const Problem& problem : Problems()) {
        std::cout << problem.m_pszId << '\t' << problem.m_pszCheck << '\t' << problem.m_pszMeaning << '\n';
    }
}

bool WantsColour(int i_nDescriptor) {
    const char* const pszTerminal = std::getenv("TERM");
    return isatty(i_nDescriptor) != 0 && std::getenv("NO_COLOR") == nullptr && pszTerminal != nullptr &&
           std::string(pszTerminal) != "dumb";
}

int Run(int i_nArguments, char** i_ppszArguments) {
    CLI::App app{
        "morwen-doctor: says what is wrong with a Kerberos set-up, and how to fix it.\n"
        "Run it as the account and with the environment of the program that fails: KRB5_CONFIG, KRB5CCNAME, "
        "KRB5_KTNAME and KRB5RCACHEDIR count. It prints no secret, and changes nothing but what every logon does."};
    app.footer("Exit status: 0 no error (there may be warnings), 1 an error was found, 2 usage or internal error.");
    app.set_version_flag("--version", MORWEN_VERSION);
    app.require_subcommand(1);
    bool bJson = false;
    bool bTrace = false;
    bool bStandard = false;
    int nWait = 0;
    Options options;
    LogonOptions logon;
    const auto addCommon = [&](CLI::App* i_pCommand, const char* i_pszWait) {
        i_pCommand->add_flag("--json", bJson, "the report as JSON");
        i_pCommand->add_flag("--trace", bTrace, "shows the library's trace on standard error (and in the JSON)");
        i_pCommand->add_option("--timeout", nWait, i_pszWait)->check(CLI::Range(1, 3600));
    };
    CLI::App* const pClient = app.add_subcommand("client", "checks what a client needs");
    CLI::App* const pServer = app.add_subcommand("server", "checks what a server needs");
    for (CLI::App* const pCommand : {pClient, pServer}) {
        pCommand->add_option("--spn", options.m_spn, "the service's principal, service/host or service/host@REALM");
        addCommon(pCommand, "seconds to wait for KDCs [3]");
    }
    pClient->add_flag("--delegation", options.m_bDelegation, "the server is to act as the user on other servers");
    CLI::Option* const pUser =
        pClient->add_option("--user", options.m_user, "DOMAIN\\USER, or USER of the default realm, for --password");
    bool bPassword = false;
    int nPassword = -1;
    CLI::Option* const pPassword = pClient
                                       ->add_flag("--password", bPassword,
                                                  "asks for the user's password and tries it, once, in place of the "
                                                  "tickets that are there")
                                       ->needs(pUser);
    pClient->add_option("--password-fd", nPassword, "the same, and reads the password from this descriptor")
        ->check(CLI::NonNegativeNumber)
        ->needs(pUser)
        ->excludes(pPassword);
    pServer->add_option("--user", options.m_user, "a user's principal, whose local account is looked up");
    pServer
        ->add_option("--account", options.m_account,
                     "the service's account, as which everything is looked at (root may ask this)")
        ->check([](const std::string& i_name) { return i_name.empty() ? std::string("no name") : std::string(); });
    pServer->add_flag("--impersonate", options.m_bImpersonate,
                      "the server is to act as its users on this machine; with --account, the account keeps the two "
                      "capabilities for it, which the service's unit must give then");

    pServer->add_option(
        "--second-hop", options.m_secondHop,
        "another service, SERVICE/HOST, that the server is to log on to as its users; needs --spn and a "
        "user's ticket");

    CLI::App* const pLogin = app.add_subcommand("login", "the client's half of a real logon, with the user's tickets");
    pLogin->add_option("--spn", logon.m_spn, "the service's principal")->required();
    CLI::Option* const pConnect = pLogin->add_option("--connect", logon.m_peer, "HOST:PORT of morwen-doctor accept");
    pLogin->add_flag("--stdio", bStandard, "tokens on standard output and input (the default)")->excludes(pConnect);
    CLI::App* const pAccept = app.add_subcommand("accept", "the server's half, for one logon");
    std::string listen = "127.0.0.1:0";
    CLI::Option* const pListen =
        pAccept->add_option("--listen", listen, "ADDRESS:PORT, port 0 for any free one")->capture_default_str();
    pAccept->add_flag("--stdio", bStandard, "tokens on standard input and output")->excludes(pListen);
    pAccept->add_flag("--impersonate", logon.m_bImpersonate, "acts as the user for a moment");
    for (CLI::App* const pCommand : {pLogin, pAccept}) {
        addCommon(pCommand, "seconds for all of it [300]");
        pCommand->footer(
            "With --stdio the tokens are lines of text, for a pipe or for copying and pasting between "
            "two terminals; the report is on standard error then.");
    }
    CLI::App* const pFindings = app.add_subcommand("findings", "lists every finding: identifier, check, meaning");
    const char* const pszCommand = i_nArguments > 1 ? i_ppszArguments[1] : "-";
    if (*pszCommand != '-' &&
        app.get_subcommands([&](const CLI::App* i_p) { return i_p->check_name(pszCommand); }).empty()) {
        std::cerr << "morwen-doctor: there is no command " << pszCommand
                  << "; there are client, server, login, accept and findings (--help)\n";
        return kUsage;
    }
    try {
        app.parse(i_nArguments, i_ppszArguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kFine : kUsage;
    }
    if (pFindings->parsed()) {
        ListProblems();
        return kFine;
    }

    const CLI::App* const pCommand = app.get_subcommands().front();
    Report report;
    TraceLog trace(bTrace);
    if (pLogin->parsed() || pAccept->parsed()) {
        logon.m_wait = std::chrono::seconds(nWait > 0 ? nWait : 300);
        if (pAccept->parsed() && !bStandard) {
            logon.m_peer = listen;
        }
        (pLogin->parsed() ? LogIn : AcceptLogon)(logon, report);
    } else {
        options.m_bServer = pServer->parsed();
        options.m_wait = std::chrono::seconds(nWait > 0 ? nWait : 3);
        if (bPassword || nPassword >= 0) {
            options.m_ssPassword = ReadSecretLine(nPassword);
        }
        if (!options.m_account.empty()) {
            BecomeAccount(options.m_account, options.m_bImpersonate);
        }
        Case subject{options, report};
        CheckAll(subject);
    }
    const bool bTokensOnOutput = (pLogin->parsed() || pAccept->parsed()) && logon.m_peer.empty();
    std::ostream& out = bTokensOnOutput ? std::cerr : std::cout;
    if (bJson) {
        WriteJson(report, pCommand->get_name(), trace.Lines(), out);
    } else {
        WriteText(report, WantsColour(bTokensOnOutput ? STDERR_FILENO : STDOUT_FILENO), out);
        if (pClient->parsed() && report.Count(Status::Error) == 0) {
            out << "Only the client's half was tried. Whether the server accepts it: morwen-doctor server there, or a "
                   "real "
                   "logon (morwen-doctor accept there, login here).\n";
        }
    }
    out.flush();
    return !out ? kUsage : report.Count(Status::Error) == 0 ? kFine : kWrong;
}

}  // namespace

}  // namespace morwen::doctor

int main(int i_nArguments, char** i_ppszArguments) {
    try {
        return morwen::doctor::Run(i_nArguments, i_ppszArguments);
    } catch (const std::exception& error) {
        std::cerr << "morwen-doctor: " << error.what() << '\n';
        return 2;
    }
}
