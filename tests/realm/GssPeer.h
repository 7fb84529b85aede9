// A peer that speaks the mechanism through the system's GSS-API.
#pragma once

#include <gssapi/gssapi_krb5.h>

#include <span>
#include <string>

#include "realm/Login.h"

namespace morwen {

// One side of one exchange: initiates with the tickets of the default cache, or accepts for the keys of the default
// keytab. Each step gives the next token, which is empty when there is none.
class GssPeer {
public:
    GssPeer() = default;
    GssPeer(const GssPeer&) = delete;
    GssPeer& operator=(const GssPeer&) = delete;
    ~GssPeer() {
        OM_uint32 nMinor = 0;
        gss_delete_sec_context(&nMinor, &m_context, GSS_C_NO_BUFFER);
        gss_release_cred(&nMinor, &m_delegated);
    }

    Bytes Initiate(std::string i_service, OM_uint32 i_nFlags, std::span<const uint8_t> i_token = {}) {
        gss_name_t target = GSS_C_NO_NAME;
        gss_buffer_desc name = {i_service.size(), i_service.data()};
        gss_import_name(&m_nMinor, &name, GSS_KRB5_NT_PRINCIPAL_NAME, &target);
        gss_buffer_desc input = BufferOf(i_token);
        gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
        m_nMajor = gss_init_sec_context(&m_nMinor, GSS_C_NO_CREDENTIAL, &m_context, target, gss_mech_krb5, i_nFlags, 0,
                                        GSS_C_NO_CHANNEL_BINDINGS, &input, nullptr, &output, nullptr, nullptr);
        OM_uint32 nMinor = 0;
        gss_release_name(&nMinor, &target);
        return Take<Bytes>(output);
    }

    Bytes Accept(std::span<const uint8_t> i_token) {
        gss_buffer_desc input = BufferOf(i_token);
        gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
        m_nMajor = gss_accept_sec_context(&m_nMinor, &m_context, GSS_C_NO_CREDENTIAL, &input, GSS_C_NO_CHANNEL_BINDINGS,
                                          nullptr, nullptr, &output, nullptr, nullptr, &m_delegated);
        return Take<Bytes>(output);
    }

    // What has come of it: "CLIENT to SERVICE", followed by " one way" when the service has not proved itself and by
    // " delegating CLIENT" when tickets came along; "unfinished"; or "failed" and the system's words for it.
    std::string Outcome() const {
        OM_uint32 nMinor = 0;
        OM_uint32 nFlags = 0;
        if (m_nMajor == GSS_S_CONTINUE_NEEDED) {
            return "unfinished";
        }
        if (m_nMajor != GSS_S_COMPLETE) {
            gss_buffer_desc words = GSS_C_EMPTY_BUFFER;
            gss_display_status(&nMinor, m_nMinor, GSS_C_MECH_CODE, gss_mech_krb5, &nFlags, &words);
            return "failed " + Take<std::string>(words);
        }
        gss_name_t client = GSS_C_NO_NAME;
        gss_name_t service = GSS_C_NO_NAME;
        gss_inquire_context(&nMinor, m_context, &client, &service, nullptr, nullptr, &nFlags, nullptr, nullptr);
        std::string outcome = TakeName(client) + " to " + TakeName(service);
        outcome += (nFlags & GSS_C_MUTUAL_FLAG) == 0 ? " one way" : "";
        if (m_delegated != GSS_C_NO_CREDENTIAL) {
            gss_inquire_cred(&nMinor, m_delegated, &client, nullptr, nullptr, nullptr);
            outcome += " delegating " + TakeName(client);
        }
        return outcome;
    }

private:
    static gss_buffer_desc BufferOf(std::span<const uint8_t> i_bytes) {
        return {i_bytes.size(), const_cast<uint8_t*>(i_bytes.data())};
    }
    template <class Result>
    static Result Take(gss_buffer_desc i_buffer) {
        const auto* const pBytes = static_cast<const uint8_t*>(i_buffer.value);
        Result result(pBytes, pBytes + i_buffer.length);
        OM_uint32 nMinor = 0;
        gss_release_buffer(&nMinor, &i_buffer);
        return result;
    }
    static std::string TakeName(gss_name_t i_name) {
        OM_uint32 nMinor = 0;
        gss_buffer_desc text = GSS_C_EMPTY_BUFFER;
        gss_display_name(&nMinor, i_name, &text, nullptr);
        gss_release_name(&nMinor, &i_name);
        return Take<std::string>(text);
    }

    gss_ctx_id_t m_context = GSS_C_NO_CONTEXT;
    gss_cred_id_t m_delegated = GSS_C_NO_CREDENTIAL;
    OM_uint32 m_nMajor = GSS_S_CONTINUE_NEEDED;
    OM_uint32 m_nMinor = 0;
};

}  // namespace morwen
