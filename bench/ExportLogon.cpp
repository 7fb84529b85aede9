#include "bench/ExportLogon.h"

#include "bench/Bench.h"

namespace morwen::bench {

namespace {
constexpr const SSOChar* kType = u"" SSO_PROVIDER_SSPI;
}

Package::Package() {
    const ParasSeq keep = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"1", nullptr};
    Require(SSOInitPackage() == SSO_OK && SSOInitProvider(kType, &keep) == SSO_OK, "the package does not start");
}

Package::~Package() {
    SSOTermPackage();
}

Output::~Output() {
    SSOFreeString(m_pszKey);
    SSOFreeBuffer(m_pvToken);
    SSOFreeParameters(m_pInformation);
}

ExportLogon::ExportLogon(const Target& i_target)
    : m_service(i_target.m_service.begin(), i_target.m_service.end()),
      m_bNegotiate(i_target.m_bNegotiate),
      m_bBind(i_target.m_bBind) {}

void ExportLogon::Start(Output& o_client) const {
    constexpr const SSOChar* kChannel =
        u"tls-exporter:000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    ParasSeq bind = {u"" SSO_KEY_CHANNEL_BINDINGS, SSO_PARAMETER_STRING, kChannel, nullptr};
    ParasSeq negotiate = {u"" SSO_KEY_NEGOTIATE, SSO_PARAMETER_BOOL, u"1", m_bBind ? &bind : nullptr};
    const ParasSeq parameters = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, m_service.c_str(),
                                 m_bNegotiate ? &negotiate : negotiate.next};
    Require(SSOStartLogin(nullptr, nullptr, kType, &parameters, &o_client.m_pszKey, &o_client.m_pvToken,
                          &o_client.m_nLength) == SSO_CONTINUE,
            "SSOStartLogin failed");
}

void ExportLogon::Accept(const void* i_pvToken, SSOLength i_nLength, Output& o_server) {
    Require(SSOAcceptLogin(kType, nullptr, i_pvToken, i_nLength, &o_server.m_pvToken, &o_server.m_nLength, nullptr,
                           &o_server.m_pszKey) == SSO_CONTINUE,
            "SSOAcceptLogin failed");
}

void ExportLogon::Continue(const SSOChar* i_pszKey, const Output& i_server) {
    Output none;
    Require(
        SSOContinueLogin(i_pszKey, i_server.m_pvToken, i_server.m_nLength, &none.m_pvToken, &none.m_nLength) == SSO_OK,
        "SSOContinueLogin failed");
}

void ExportLogon::Close(const SSOChar* i_pszKey, Output& o_context) {
    Require(SSOAcceptLogin(kType, i_pszKey, nullptr, 0, &o_context.m_pvToken, &o_context.m_nLength,
                           &o_context.m_pInformation, &o_context.m_pszKey) == SSO_ACCEPTED &&
                o_context.m_pInformation != nullptr,
            "the closing SSOAcceptLogin failed");
}

void ExportLogon::Keep(Output& o_context) const {
    Output client;
    Output server;
    Start(client);
    Accept(client.m_pvToken, client.m_nLength, server);
    Continue(client.m_pszKey, server);
    Close(server.m_pszKey, o_context);
}

void ExportLogon::Run() const {
    Output context;
    Keep(context);
    Require(SSOReleaseSecurityContext(context.m_pszKey) == SSO_OK, "SSOReleaseSecurityContext failed");
}

}  // namespace morwen::bench
