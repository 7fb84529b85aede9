#include "bench/Krb5Logon.h"

#include <atomic>
#include <exception>

#include "bench/Bench.h"

namespace morwen::bench {

namespace {

// As RFC 4121 lays the checksum out: length and bindings, flags, and with delegation an option, a length, a KRB-CRED.
constexpr size_t kFlagsAt = 20;
constexpr size_t kDelegationAt = 28;
constexpr char kMutual = 2;
constexpr char kDelegate = 1;
constexpr krb5_cksumtype kGssChecksum = 0x8003;

void Check(krb5_error_code i_nCode, const char* i_pszCall) {
    Require(i_nCode == 0, std::string(i_pszCall) + " failed with " + std::to_string(i_nCode));
}

}  // namespace

size_t CountKeys() {
    krb5_context context = nullptr;
    Check(krb5_init_context(&context), "krb5_init_context");
    size_t nKeys = 0;
    {
        Krb5Keytab source(context);
        Check(krb5_kt_default(context, source.Receive()), "krb5_kt_default");
        krb5_kt_cursor cursor = nullptr;
        krb5_keytab_entry entry{};
        Check(krb5_kt_start_seq_get(context, source.get(), &cursor), "krb5_kt_start_seq_get");
        for (; krb5_kt_next_entry(context, source.get(), &entry, &cursor) == 0; ++nKeys) {
            krb5_free_keytab_entry_contents(context, &entry);
        }
        krb5_kt_end_seq_get(context, source.get(), &cursor);
    }
    krb5_free_context(context);
    return nKeys;
}

Krb5Logon::Krb5Logon(const Target& i_target) : m_bDelegate(i_target.m_bDelegate) {
    Check(krb5_init_context(&m_context), "krb5_init_context");
    Check(krb5_parse_name(m_context, i_target.m_service.c_str(), &m_server), "krb5_parse_name");
    HoldKeys();
    HoldTicket();
    m_checksum.resize(kFlagsAt + 4);
    m_checksum[0] = 16;
    m_checksum[kFlagsAt] = static_cast<char>(kMutual | (m_bDelegate ? kDelegate : 0));
}

Krb5Logon::~Krb5Logon() {
    krb5_free_creds(m_context, m_pTicket);
    krb5_kt_close(m_context, m_keytab);
    krb5_cc_close(m_context, m_cache);
    krb5_free_principal(m_context, m_server);
    krb5_free_context(m_context);
}

void Krb5Logon::HoldKeys() {
    static std::atomic<int> s_nLast{0};
    Check(krb5_kt_resolve(m_context, ("MEMORY:bench-" + std::to_string(++s_nLast)).c_str(), &m_keytab),
          "krb5_kt_resolve");
    Krb5Keytab source(m_context);
    Check(krb5_kt_default(m_context, source.Receive()), "krb5_kt_default");
    krb5_kt_cursor cursor = nullptr;
    krb5_keytab_entry entry{};
    Check(krb5_kt_start_seq_get(m_context, source.get(), &cursor), "krb5_kt_start_seq_get");
    while (krb5_kt_next_entry(m_context, source.get(), &entry, &cursor) == 0) {
        if (krb5_principal_compare(m_context, entry.principal, m_server) != 0) {
            Check(krb5_kt_add_entry(m_context, m_keytab, &entry), "krb5_kt_add_entry");
        }
        krb5_free_keytab_entry_contents(m_context, &entry);
    }
    krb5_kt_end_seq_get(m_context, source.get(), &cursor);
}

void Krb5Logon::HoldTicket() {
    Check(krb5_cc_default(m_context, &m_cache), "krb5_cc_default");
    Krb5Principal client(m_context);
    Check(krb5_cc_get_principal(m_context, m_cache, client.Receive()), "krb5_cc_get_principal");
    krb5_creds wanted{};
    wanted.client = client.get();
    wanted.server = m_server;
    Check(krb5_get_credentials(m_context, 0, m_cache, &wanted, &m_pTicket), "krb5_get_credentials");
}

// Delegated tickets travel under the session key, without flags.
void Krb5Logon::Forward(krb5_auth_context io_exchange) {
    krb5_int32 nFlags = 0;
    krb5_key subKey = nullptr;
    krb5_auth_con_getflags(m_context, io_exchange, &nFlags);
    krb5_auth_con_getsendsubkey_k(m_context, io_exchange, &subKey);
    krb5_auth_con_setflags(m_context, io_exchange, 0);
    krb5_auth_con_setsendsubkey_k(m_context, io_exchange, nullptr);
    Krb5Data message(m_context);
    const krb5_error_code nCode = krb5_fwd_tgt_creds(m_context, io_exchange, "localhost", m_pTicket->client,
                                                     m_pTicket->server, m_cache, 1, message.Receive());
    krb5_auth_con_setsendsubkey_k(m_context, io_exchange, subKey);
    krb5_k_free_key(m_context, subKey);
    krb5_auth_con_setflags(m_context, io_exchange, nFlags);
    Check(nCode, "krb5_fwd_tgt_creds");
    m_checksum.resize(kDelegationAt);
    m_checksum[kFlagsAt + 4] = 1;
    m_checksum[kFlagsAt + 5] = 0;
    m_checksum[kFlagsAt + 6] = static_cast<char>(message->length & 0xFF);
    m_checksum[kFlagsAt + 7] = static_cast<char>(message->length >> 8);
    m_checksum.insert(m_checksum.end(), message->data, message->data + message->length);
}

krb5_error_code Krb5Logon::MakeChecksum(krb5_context, krb5_auth_context io_exchange, void* i_pvSelf,
                                        krb5_data** o_ppChecksum) {
    auto& self = *static_cast<Krb5Logon*>(i_pvSelf);
    if (self.m_bDelegate) {
        try {
            self.Forward(io_exchange);
        } catch (const std::exception&) {
            return KRB5_FWD_BAD_PRINCIPAL;
        }
    }
    self.m_checksumData.data = self.m_checksum.data();
    self.m_checksumData.length = static_cast<unsigned>(self.m_checksum.size());
    *o_ppChecksum = &self.m_checksumData;
    return 0;
}

void Krb5Logon::Receive(krb5_auth_context io_exchange, const krb5_checksum& i_checksum) {
    krb5_int32 nFlags = 0;
    krb5_auth_con_getflags(m_context, io_exchange, &nFlags);
    krb5_auth_con_setflags(m_context, io_exchange, 0);
    krb5_data message{};
    message.data = reinterpret_cast<char*>(i_checksum.contents + kDelegationAt);
    message.length = i_checksum.length - static_cast<unsigned>(kDelegationAt);
    krb5_creds** ppTickets = nullptr;
    Check(krb5_rd_cred(m_context, io_exchange, &message, &ppTickets, nullptr), "krb5_rd_cred");
    krb5_free_tgt_creds(m_context, ppTickets);
    krb5_auth_con_setflags(m_context, io_exchange, nFlags);
}

void Krb5Logon::Run() {
    Krb5AuthContext client(m_context);
    Krb5AuthContext server(m_context);
    Krb5Data request(m_context);
    Krb5Data reply(m_context);
    Check(krb5_auth_con_init(m_context, client.Receive()), "krb5_auth_con_init");
    krb5_auth_con_setflags(m_context, client.get(), KRB5_AUTH_CONTEXT_DO_TIME | KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    krb5_auth_con_set_req_cksumtype(m_context, client.get(), kGssChecksum);
    krb5_auth_con_set_checksum_func(m_context, client.get(), MakeChecksum, this);
    krb5_auth_context exchange = client.get();
    Check(krb5_mk_req_extended(m_context, &exchange, AP_OPTS_MUTUAL_REQUIRED | AP_OPTS_USE_SUBKEY, nullptr, m_pTicket,
                               request.Receive()),
          "krb5_mk_req_extended");

    Check(krb5_auth_con_init(m_context, server.Receive()), "krb5_auth_con_init");
    krb5_auth_con_setflags(m_context, server.get(), KRB5_AUTH_CONTEXT_DO_TIME | KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    exchange = server.get();
    Krb5Ticket ticket(m_context);
    Check(krb5_rd_req(m_context, &exchange, &*request, m_server, m_keytab, nullptr, ticket.Receive()), "krb5_rd_req");
    Krb5Authenticator authenticator(m_context);
    Check(krb5_auth_con_getauthenticator(m_context, server.get(), authenticator.Receive()),
          "krb5_auth_con_getauthenticator");
    Require(authenticator->checksum != nullptr && authenticator->checksum->length > kFlagsAt, "no checksum");
    if (m_bDelegate) {
        Receive(server.get(), *authenticator->checksum);
    }
    krb5_auth_con_setflags(m_context, server.get(), KRB5_AUTH_CONTEXT_DO_SEQUENCE | KRB5_AUTH_CONTEXT_USE_SUBKEY);
    Check(krb5_mk_rep(m_context, server.get(), reply.Receive()), "krb5_mk_rep");

    Krb5ReplyPart part(m_context);
    Check(krb5_rd_rep(m_context, client.get(), &*reply, part.Receive()), "krb5_rd_rep");
}

}  // namespace morwen::bench
