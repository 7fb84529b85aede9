// Server: whether it may reach another service in a user's name, and how.
#include "platform/linux/delegation/ProxyTickets.h"
#include "platform/linux/delegation/ServiceLogon.h"
#include "platform/linux/keys/ServiceName.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "tools/doctor/case/FreshTickets.h"
#include "tools/doctor/case/KeytabKeys.h"
#include "tools/doctor/checks/Checks.h"
#include "tools/doctor/checks/UnknownService.h"

namespace morwen::doctor {

namespace {

constexpr const char* kCheck = "second-hop";

struct Hop {
    std::string m_lookedAt;
    bool m_bDelegated;  // the user's tickets come along, so that the other way is not needed
};

// What stands in the way is an error only where there is no other way.
void Say(Case& io_case, const Hop& i_hop, const char* i_pszId, const std::string& i_found, std::string i_remedy) {
    if (i_hop.m_bDelegated) {
        io_case.m_report.Ok(kCheck, i_hop.m_lookedAt, "not so, nor is it needed: " + i_found);
    } else {
        io_case.m_report.Fail(i_pszId, i_hop.m_lookedAt, i_found, std::move(i_remedy));
    }
}

void CheckConstrained(Case& io_case, const Hop& i_hop, const krb5_creds& i_ticket) {
    const krb5_context context = io_case.Context();
    const std::string& target = io_case.m_options.m_secondHop;
    const auto ticket = BytesOf(i_ticket.ticket);
    std::string account = "ACCOUNT";
    try {
        if (const auto service = TicketService::Read(ticket)) {
            account = PrincipalText(context, ServiceLogon::Get(context, *service)->m_account.get());
        }
    } catch (const SspiFailure& failure) {
        Say(io_case, i_hop, "hop-no-account", std::string(FailureText(failure.Status())),
            "add the key of the account behind the service under its own name, HOST$ for a computer: samba-tool domain "
            "exportkeytab " +
                Quoted(DefaultKeytab(context)) +
                " --principal=ACCOUNT, or what the machine was joined with (msktutil, ktpass); or name a keytab that "
                "has "
                "it in KRB5_CLIENT_KTNAME");
        return;
    }
    try {
        const ProxyTickets::Evidence evidence{ticket, i_ticket.client, SecondsOf(i_ticket.times.endtime)};
        const auto pFound = ProxyTickets::Of(ticket)->Get(context, evidence, target);
        io_case.m_report.Ok(kCheck, i_hop.m_lookedAt,
                            "the KDC lets " + account + ", and has given a ticket of " +
                                PrincipalText(context, pFound->m_credentials.get()->client));
    } catch (const SspiFailure& failure) {
        const std::string name = account.substr(0, account.find('@'));
        Say(io_case, i_hop, "hop-refused", std::string(FailureText(failure.Status())),
            "on the directory's server: samba-tool delegation add-service " + Quoted(name) + " " + Quoted(target) +
                "; with Windows' tools: on the account's page \"Delegation\" put it in the list of specified services. "
                "MIT's and Heimdal's KDCs have no such list: kadmin modprinc +ok_as_delegate SERVICE");
    }
}

// The user's ticket for the service, and whether the KDC knows the other service. False, and a finding, if not.
bool FindTicket(Case& io_case, const std::string& i_lookedAt, krb5_principal i_service, Krb5Credentials& o_ticket) {
    FreshTickets tickets(io_case);
    krb5_error_code nCode = tickets.TakeFromDefaultCache();
    if (nCode == 0) {
        nCode = tickets.Get(i_service, o_ticket);
    }
    try {
        const Krb5Principal backEnd = ServicePrincipal(io_case.Context(), io_case.m_options.m_secondHop);
        Krb5Credentials forBackEnd(io_case.Context());
        if (nCode == 0 && tickets.Get(backEnd.get(), forBackEnd) == KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN) {
            SayUnknown(io_case, &tickets, backEnd.get(), io_case.Words(KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN));
            return false;
        }
    } catch (const SspiFailure& failure) {
        io_case.m_report.Fail("spn-malformed", i_lookedAt, std::string(FailureText(failure.Status())),
                              "write service/host, as in db/database.example.org");
        return false;
    }
    if (nCode != 0) {
        io_case.m_report.Skip(kCheck, i_lookedAt, "the user has no ticket for the service: " + io_case.Words(nCode));
    }
    return nCode == 0;
}

}  // namespace

void CheckSecondHop(Case& io_case) {
    const krb5_context context = io_case.Context();
    const std::string& target = io_case.m_options.m_secondHop;
    if (target.empty()) {
        return;
    }
    const Krb5Principal service = ServiceOf(io_case);
    const std::string name = service ? PrincipalText(context, service.get()) : std::string("the service");
    const std::string lookedAt = "whether " + name + " may go on to " + target + " as its users";
    if (!service || !io_case.m_bTickets || !io_case.CanAsk() || io_case.m_nClockOffset != 0) {
        const char* const pszWhy = !service              ? "no principal was given (--spn)"
                                   : !io_case.m_bTickets ? "there is no user's ticket to show to the KDC (kinit)"
                                   : !io_case.CanAsk()   ? "there is no KDC to ask"
                                                         : "the clocks differ too much to ask";
        io_case.m_report.Skip(kCheck, lookedAt, pszWhy);
        return;
    }
    Krb5Credentials ticket(context);
    if (!FindTicket(io_case, lookedAt, service.get(), ticket)) {
        return;
    }
    if ((ticket->ticket_flags & TKT_FLG_FORWARDABLE) == 0) {
        io_case.m_report.Fail(
            "hop-not-forwardable", lookedAt,
            "the ticket of " + PrincipalText(context, ticket->client) + " for " + name + " is not forwardable",
            "kinit -f; in a directory the account must not be \"sensitive and cannot be delegated\", nor in the group "
            "\"Protected Users\": such a user has no second hop, and is not meant to");
        return;
    }
    const bool bTrusted = (ticket->ticket_flags & TKT_FLG_OK_AS_DELEGATE) != 0;
    io_case.m_report.Ok(kCheck, lookedAt + ", with tickets that they delegate",
                        bTrusted ? "the realm trusts it with them, and it goes anywhere as they"
                                 : "the realm does not trust it with them, so they delegate none");
    CheckConstrained(io_case, {lookedAt + ", with the KDC's leave", bTrusted}, *ticket.get());
}

}  // namespace morwen::doctor
