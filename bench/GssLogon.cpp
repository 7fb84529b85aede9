#include "bench/GssLogon.h"

#include "bench/Bench.h"

namespace morwen::bench {

namespace {

// What one logon allocates.
struct Exchange {
    gss_ctx_id_t m_client = GSS_C_NO_CONTEXT;
    gss_ctx_id_t m_server = GSS_C_NO_CONTEXT;
    gss_cred_id_t m_delegated = GSS_C_NO_CREDENTIAL;
    gss_buffer_desc m_request = GSS_C_EMPTY_BUFFER;
    gss_buffer_desc m_reply = GSS_C_EMPTY_BUFFER;

    Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange() {
        OM_uint32 nMinor = 0;
        gss_release_buffer(&nMinor, &m_request);
        gss_release_buffer(&nMinor, &m_reply);
        gss_release_cred(&nMinor, &m_delegated);
        gss_delete_sec_context(&nMinor, &m_client, GSS_C_NO_BUFFER);
        gss_delete_sec_context(&nMinor, &m_server, GSS_C_NO_BUFFER);
    }
};

gss_name_t NameOf(std::string i_service) {
    OM_uint32 nMinor = 0;
    gss_name_t name = GSS_C_NO_NAME;
    gss_buffer_desc text = {i_service.size(), i_service.data()};
    Require(gss_import_name(&nMinor, &text, GSS_KRB5_NT_PRINCIPAL_NAME, &name) == GSS_S_COMPLETE, "gss_import_name");
    return name;
}

}  // namespace

GssLogon::GssLogon(const Target& i_target, Credentials i_eCredentials)
    : m_eCredentials(i_eCredentials),
      m_nFlags(GSS_C_MUTUAL_FLAG | (i_target.m_bDelegate ? GSS_C_DELEG_FLAG : 0)),
      m_service(NameOf(i_target.m_service)) {
    if (m_eCredentials == Credentials::Held) {
        Acquire();
    }
}

GssLogon::~GssLogon() {
    OM_uint32 nMinor = 0;
    Release();
    gss_release_name(&nMinor, &m_service);
}

void GssLogon::Acquire() {
    OM_uint32 nMinor = 0;
    Require(gss_acquire_cred(&nMinor, GSS_C_NO_NAME, GSS_C_INDEFINITE, GSS_C_NO_OID_SET, GSS_C_INITIATE, &m_client,
                             nullptr, nullptr) == GSS_S_COMPLETE &&
                gss_acquire_cred(&nMinor, m_service, GSS_C_INDEFINITE, GSS_C_NO_OID_SET, GSS_C_ACCEPT, &m_server,
                                 nullptr, nullptr) == GSS_S_COMPLETE,
            "gss_acquire_cred");
}

void GssLogon::Release() {
    OM_uint32 nMinor = 0;
    gss_release_cred(&nMinor, &m_client);
    gss_release_cred(&nMinor, &m_server);
}

void GssLogon::Run() {
    if (m_eCredentials == Credentials::AcquiredEachTime) {
        Acquire();
    }
    {
        OM_uint32 nMinor = 0;
        Exchange exchange;
        const auto initiate = [&](gss_buffer_t i_pInput, gss_buffer_t o_pOutput) {
            return gss_init_sec_context(&nMinor, m_client, &exchange.m_client, m_service, gss_mech_krb5, m_nFlags, 0,
                                        GSS_C_NO_CHANNEL_BINDINGS, i_pInput, nullptr, o_pOutput, nullptr, nullptr);
        };
        gss_buffer_desc none = GSS_C_EMPTY_BUFFER;
        Require(initiate(GSS_C_NO_BUFFER, &exchange.m_request) == GSS_S_CONTINUE_NEEDED, "gss_init_sec_context");
        const OM_uint32 nMajor = gss_accept_sec_context(&nMinor, &exchange.m_server, m_server, &exchange.m_request,
                                                        GSS_C_NO_CHANNEL_BINDINGS, nullptr, nullptr, &exchange.m_reply,
                                                        nullptr, nullptr, &exchange.m_delegated);
        Require(nMajor == GSS_S_COMPLETE, "gss_accept_sec_context: minor status " + std::to_string(nMinor));
        Require(initiate(&exchange.m_reply, &none) == GSS_S_COMPLETE, "gss_init_sec_context, second pass");
        Require((exchange.m_delegated != GSS_C_NO_CREDENTIAL) == ((m_nFlags & GSS_C_DELEG_FLAG) != 0),
                "GSS-API and delegation");
    }
    if (m_eCredentials == Credentials::AcquiredEachTime) {
        Release();
    }
}

}  // namespace morwen::bench
