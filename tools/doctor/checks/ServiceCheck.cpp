// Client: a ticket for the service, and delegation.
#include <netdb.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "tools/doctor/case/EncTypes.h"
#include "tools/doctor/case/FreshTickets.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

std::string Changed(std::string i_text, int (*i_pfnChange)(int)) {
    std::transform(i_text.begin(), i_text.end(), i_text.begin(),
                   [i_pfnChange](unsigned char i_c) { return static_cast<char>(i_pfnChange(i_c)); });
    return i_text;
}

std::string CanonicalHost(const std::string& i_host) {
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    addrinfo* pList = nullptr;
    if (getaddrinfo(i_host.c_str(), nullptr, &hints, &pList) != 0) {
        return i_host;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> pOwner(pList, freeaddrinfo);
    return pList->ai_canonname != nullptr ? pList->ai_canonname : i_host;
}

// Other spellings and names under which administrators register a service; the name itself is not among them.
std::vector<std::string> Aliases(const std::string& i_service, const std::string& i_host) {
    const std::string lowService = Changed(i_service, std::tolower);
    const std::string lowHost = Changed(i_host, std::tolower);
    const std::string full = Changed(CanonicalHost(i_host), std::tolower);
    std::vector<std::string> aliases;
    for (const std::string& service : {lowService, Changed(i_service, std::toupper), i_service}) {
        for (const std::string& host : {lowHost, full, lowHost.substr(0, lowHost.find('.')), i_host}) {
            aliases.push_back(std::string(service).append("/").append(host));
        }
    }
    aliases.push_back("host/" + lowHost);
    aliases.push_back("host/" + full);
    const std::string itself = i_service + "/" + i_host;
    std::vector<std::string> once;
    for (const std::string& alias : aliases) {
        if (alias != itself && std::find(once.begin(), once.end(), alias) == once.end()) {
            once.push_back(alias);
        }
    }
    return once;
}

void SayUnknown(Case& io_case, FreshTickets& io_tickets, krb5_principal i_service, krb5_error_code i_nCode) {
    const krb5_context context = io_case.Context();
    const std::string service(i_service->data[0].data, i_service->data[0].length);
    const std::string host(i_service->data[1].data, i_service->data[1].length);
    const krb5_data& hostRealm = i_service->realm;  // empty: the KDC is to find out
    const std::string realm = hostRealm.length != 0 ? std::string(hostRealm.data, hostRealm.length) : io_case.m_realm;
    const std::string words = io_case.Words(i_nCode);
    const std::string asked = Changed(service + "/" + host, std::tolower);
    std::string tried;
    std::string known;
    std::string otherCase;
    for (const std::string& alias : Aliases(service, host)) {
        Krb5Principal principal(context);
        Krb5Credentials ticket(context);
        Enumerate(tried, alias);
        if (krb5_parse_name(context, std::string(alias).append("@").append(realm).c_str(), principal.Receive()) == 0 &&
            io_tickets.Get(principal.get(), ticket) == 0) {
            Enumerate(known, alias);
            if (Changed(alias, std::tolower) == asked) {
                otherCase = alias;
            }
        }
    }
    const std::string lookedAt = "the service " + PrincipalText(context, i_service);
    const std::string found = words + "; also tried: " + tried + "; known: " + (known.empty() ? "none" : known);
    if (!otherCase.empty()) {
        io_case.m_report.Fail("spn-case", lookedAt, found,
                              "use the name as it is registered: " + Quoted(otherCase) +
                                  " (SI_SERVER_SSPI_SPN of the program, --spn here)");
        return;
    }
    const std::string name = Quoted(service + "/" + host);
    io_case.m_report.Fail("spn-unknown", lookedAt, found,
                          (known.empty() ? "" : "use one of the known names, or ") +
                              ("kadmin addprinc -randkey " + name) + "; in a directory: setspn -S " + name +
                              " ACCOUNT");
}

// The library takes a ticket from the user's cache if there is one, whatever the KDC would give now.
void LookForStaleTicket(Case& io_case, krb5_principal i_service, krb5_kvno i_nVersion) {
    const krb5_context context = io_case.Context();
    Krb5CacheOwner cache(context);
    Krb5Principal client(context);
    Krb5Credentials held(context);
    Krb5Ticket ticket(context);
    krb5_creds wanted{};
    if (krb5_cc_default(context, cache.Receive()) != 0 ||
        krb5_cc_get_principal(context, cache.get(), client.Receive()) != 0) {
        return;
    }
    wanted.client = client.get();
    wanted.server = i_service;
    if (krb5_get_credentials(context, KRB5_GC_CACHED, cache.get(), &wanted, held.Receive()) == 0 &&
        krb5_decode_ticket(&held->ticket, ticket.Receive()) == 0 && ticket->enc_part.kvno != i_nVersion) {
        io_case.m_report.Warn("ticket-stale", "the cached ticket for " + PrincipalText(context, i_service),
                              "it is for key version " + std::to_string(ticket->enc_part.kvno) +
                                  ", the KDC uses version " + std::to_string(i_nVersion),
                              "kdestroy; kinit " + Quoted(PrincipalText(context, client.get())));
    }
}

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
        SayUnknown(io_case, tickets, service.get(), nCode);
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
    LookForStaleTicket(io_case, service.get(), ticket->enc_part.kvno);
    CheckDelegation(io_case, service.get(), *credentials.get());
}

}  // namespace morwen::doctor
