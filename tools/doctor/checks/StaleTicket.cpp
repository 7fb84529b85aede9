// The user's ticket for the service, when its key has changed since.
#include "tools/doctor/checks/StaleTicket.h"

namespace morwen::doctor {

void LookForStaleTicket(Case& io_case, krb5_principal i_service, const std::set<krb5_kvno>& i_versions,
                        const std::string& i_has) {
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
        krb5_decode_ticket(&held->ticket, ticket.Receive()) == 0 && !i_versions.contains(ticket->enc_part.kvno)) {
        const std::string user = PrincipalText(context, client.get());
        io_case.m_report.Fail("ticket-stale",
                              "the ticket of " + user + " for " + PrincipalText(context, i_service) + " in the cache",
                              "it is for key version " + std::to_string(ticket->enc_part.kvno) + "; " + i_has,
                              "as the user: kdestroy; kinit " + Quoted(user) +
                                  "; when keys change, leave the old ones in the keytab for as long as tickets live");
    }
}

}  // namespace morwen::doctor
