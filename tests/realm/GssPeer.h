// A peer that speaks the mechanism through the system's GSS-API.
#pragma once

#include <gssapi/gssapi_krb5.h>

#include <span>
#include <string>
#include <utility>

#include "realm/Login.h"

namespace morwen {

// How a peer speaks: the mechanism's own tokens or SPNEGO; bound to a channel.
struct GssTerms {
    bool m_bSpnego = false;
    std::string m_channel = {};  // the application data
    OM_uint32 m_nAddresses = GSS_C_AF_UNSPEC;
};

// One side of one exchange: initiates with the tickets of the default cache, or accepts for the keys of the default
// keytab. Each step gives the next token, which is empty when there is none.
class GssPeer {
public:
    explicit GssPeer(GssTerms i_terms = {}) : m_terms(std::move(i_terms)) {
        m_channel.initiator_addrtype = m_channel.acceptor_addrtype = m_terms.m_nAddresses;
        m_channel.application_data = {m_terms.m_channel.size(), m_terms.m_channel.data()};
    }
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
        m_nMajor = gss_init_sec_context(&m_nMinor, GSS_C_NO_CREDENTIAL, &m_context, target,
                                        m_terms.m_bSpnego ? &s_spnego : gss_mech_krb5, i_nFlags, 0, Channel(), &input,
                                        nullptr, &output, nullptr, nullptr);
        OM_uint32 nMinor = 0;
        gss_release_name(&nMinor, &target);
        return Take<Bytes>(output);
    }

    Bytes Accept(std::span<const uint8_t> i_token) {
        gss_buffer_desc input = BufferOf(i_token);
        gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
        m_nMajor = gss_accept_sec_context(&m_nMinor, &m_context, GSS_C_NO_CREDENTIAL, &input, Channel(), nullptr,
                                          nullptr, &output, nullptr, nullptr, &m_delegated);
        return Take<Bytes>(output);
    }

    Bytes Mic(std::span<const uint8_t> i_message) {
        gss_buffer_desc message = BufferOf(i_message);
        gss_buffer_desc mic = GSS_C_EMPTY_BUFFER;
        gss_get_mic(&m_nMinor, m_context, GSS_C_QOP_DEFAULT, &message, &mic);
        return Take<Bytes>(mic);
    }
    bool IsMic(std::span<const uint8_t> i_message, std::span<const uint8_t> i_mic) {
        gss_buffer_desc message = BufferOf(i_message);
        gss_buffer_desc mic = BufferOf(i_mic);
        return gss_verify_mic(&m_nMinor, m_context, &message, &mic, nullptr) == GSS_S_COMPLETE;
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
    inline static gss_OID_desc s_spnego = {6, const_cast<char*>("\x2B\x06\x01\x05\x05\x02")};

    gss_channel_bindings_t Channel() { return m_terms.m_channel.empty() ? GSS_C_NO_CHANNEL_BINDINGS : &m_channel; }
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

    GssTerms m_terms;
    gss_channel_bindings_struct m_channel{};
    gss_ctx_id_t m_context = GSS_C_NO_CONTEXT;
    gss_cred_id_t m_delegated = GSS_C_NO_CREDENTIAL;
    OM_uint32 m_nMajor = GSS_S_CONTINUE_NEEDED;
    OM_uint32 m_nMinor = 0;
};

}  // namespace morwen
