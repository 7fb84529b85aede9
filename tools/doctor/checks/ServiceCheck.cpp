// Client: a ticket for the service, and delegation.
#include "tools/doctor/case/EncTypes.h"
#include "tools/doctor/case/FreshTickets.h"
#include "tools/doctor/checks/Checks.h"
#include "tools/doctor/checks/StaleTicket.h"
#include "tools/doctor/checks/UnknownService.h"

namespace morwen::doctor {

namespace {

void CheckDelegation(Case& io_case, krb5_principal i_service, const krb5_creds& i_ticket) {
    const std::string name = PrincipalText(io_case.Context(), i_service);
    const std::string lookedAt = "whether the realm trusts " + name + " with delegated tickets";
    const bool bTrusted = (i_ticket.ticket_flags & TKT_FLG_OK_AS_DELEGATE) != 0;
    if (bTrusted || !io_case.m_options.m_bDelegation) {
        io_case.m_report.Ok("delegation", lookedAt, bTrusted ? "it does" : "it does not, nor was it asked for");
        return;
    }
    io_case.m_report.Fail("delegation-untrusted", lookedAt, "it does not",
                          "kadmin modprinc +ok_as_delegate " + Quoted(name) +
                              "; in a directory: \"Trust this computer (or user) for delegation\" on the account; then "
                              "kdestroy; kinit -f");
}

}  // namespace

void CheckService(Case& io_case) {
    const krb5_context context = io_case.Context();
    const Krb5Principal service = ServiceOf(io_case);
    if (!service || !io_case.m_bTickets || !io_case.CanAsk() || io_case.m_nClockOffset != 0) {
        const char* const pszWhy = !service              ? "no principal was given (--spn)"
                                   : !io_case.m_bTickets ? "there is no ticket to ask with"
                                   : !io_case.CanAsk()   ? "there is no KDC to ask"
                                                         : "the clocks differ too much to ask";
        io_case.m_report.Skip("spn", "the service's principal", pszWhy);
        return;
    }
    FreshTickets tickets(io_case);
    Krb5Credentials credentials(context);
    Krb5Ticket ticket(context);
    krb5_error_code nCode = tickets.TakeFromDefaultCache();
    std::vector<krb5_enctype> types = TypesOfLibrary(io_case);
    types.push_back(0);  // as the library would ask
    if (nCode == 0) {
        nCode = krb5_set_default_tgs_enctypes(context, types.data());
    }
    if (nCode == 0) {
        nCode = tickets.Get(service.get(), credentials);
    }
    if (nCode == KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN) {
        SayUnknown(io_case, &tickets, service.get(), io_case.Words(nCode));
        return;
    }
    if (nCode == 0) {
        nCode = krb5_decode_ticket(&credentials->ticket, ticket.Receive());
    }
    const std::string lookedAt = "a ticket for " + PrincipalText(context, service.get());
    if (nCode != 0) {
        const bool bType =
            nCode == KRB5KDC_ERR_ETYPE_NOSUPP || nCode == KRB5_CONFIG_ETYPE_NOSUPP || nCode == KRB5_CC_NOT_KTYPE;
        io_case.m_report.Fail(
            bType ? "spn-enctype" : "ticket-refused", lookedAt, io_case.Words(nCode),
            bType ? "give the service current keys (kadmin ktadd, msktutil --update), and permit "
                    "aes256-cts in [libdefaults] permitted_enctypes on this machine; RC4 needs allow_rc4 = true there"
                  : "the KDC's log names the reason; kadmin getprinc shows the attributes of user "
                    "and service");
        return;
    }
    io_case.m_report.Ok("spn", lookedAt, "the KDC gives it, with key version " + std::to_string(ticket->enc_part.kvno));
    const krb5_kvno nVersion = ticket->enc_part.kvno;
    LookForStaleTicket(io_case, service.get(), {nVersion}, "the KDC uses version " + std::to_string(nVersion));
    CheckDelegation(io_case, service.get(), *credentials.get());
}

}  // namespace morwen::doctor
