// The same logon on bare GSS-API.
#pragma once

#include <gssapi/gssapi_krb5.h>

#include "bench/ExportLogon.h"

namespace morwen::bench {

// Both halves in one process, mutual. Throws std::runtime_error when a step fails.
class GssLogon {
public:
    enum class Credentials { Held, AcquiredEachTime };

    GssLogon(const Target& i_target, Credentials i_eCredentials);
    ~GssLogon();
    GssLogon(const GssLogon&) = delete;
    GssLogon& operator=(const GssLogon&) = delete;

    void Run();

private:
    void Acquire();
    void Release();

    const Credentials m_eCredentials;
    const OM_uint32 m_nFlags;
    gss_name_t m_service = GSS_C_NO_NAME;
    gss_cred_id_t m_client = GSS_C_NO_CREDENTIAL;
    gss_cred_id_t m_server = GSS_C_NO_CREDENTIAL;
};

}  // namespace morwen::bench
