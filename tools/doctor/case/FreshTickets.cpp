// Tickets for services, asked from the KDC, not taken from a cache.
#include "tools/doctor/case/FreshTickets.h"

namespace morwen::doctor {

namespace {

// The contents of credentials that a call has filled.
struct Contents {
    krb5_context m_context;
    krb5_creds m_ticket{};
    ~Contents() { krb5_free_cred_contents(m_context, &m_ticket); }
};

}  // namespace

krb5_error_code OwnTicket(krb5_context i_context, krb5_ccache i_cache, krb5_principal i_client, krb5_creds& o_ticket) {
    const std::string realm(i_client->realm.data, i_client->realm.length);
    Krb5Principal service(i_context);
    krb5_creds wanted{};
    wanted.client = i_client;
    krb5_error_code nCode = krb5_build_principal(i_context, service.Receive(), i_client->realm.length, realm.c_str(),
                                                 KRB5_TGS_NAME, realm.c_str(), nullptr);
    if (nCode == 0) {
        wanted.server = service.get();
        nCode = krb5_cc_retrieve_cred(i_context, i_cache, 0, &wanted, &o_ticket);
    }
    return nCode;
}

FreshTickets::FreshTickets(Case& i_case) : m_context(i_case.Context()), m_client(m_context), m_cache(m_context) {}

krb5_error_code FreshTickets::Begin(krb5_creds* i_pTicket) {
    krb5_error_code nCode = krb5_cc_new_unique(m_context, "MEMORY", nullptr, m_cache.Receive());
    if (nCode == 0) {
        nCode = krb5_cc_initialize(m_context, m_cache.get(), m_client.get());
    }
    return nCode != 0 ? nCode : krb5_cc_store_cred(m_context, m_cache.get(), i_pTicket);
}

krb5_error_code FreshTickets::TakeFromDefaultCache() {
    Krb5CacheOwner cache(m_context);
    Contents own{m_context};
    krb5_error_code nCode = krb5_cc_default(m_context, cache.Receive());
    if (nCode == 0) {
        nCode = krb5_cc_get_principal(m_context, cache.get(), m_client.Receive());
    }
    if (nCode == 0) {
        nCode = OwnTicket(m_context, cache.get(), m_client.get(), own.m_ticket);
    }
    return nCode != 0 ? nCode : Begin(&own.m_ticket);
}

krb5_error_code FreshTickets::TakeWithKey(krb5_keytab i_keytab, krb5_principal i_principal) {
    Contents own{m_context};
    krb5_error_code nCode = krb5_copy_principal(m_context, i_principal, m_client.Receive());
    if (nCode == 0) {
        nCode = krb5_get_init_creds_keytab(m_context, &own.m_ticket, i_principal, i_keytab, 0, nullptr, nullptr);
    }
    return nCode != 0 ? nCode : Begin(&own.m_ticket);
}

krb5_error_code FreshTickets::Get(krb5_principal i_service, Krb5Credentials& o_ticket) {
    krb5_creds wanted{};
    wanted.client = m_client.get();
    wanted.server = i_service;
    return krb5_get_credentials(m_context, 0, m_cache.get(), &wanted, o_ticket.Receive());
}

}  // namespace morwen::doctor
