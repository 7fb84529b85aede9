// The whole logon through the exports, and what else the benchmarks need of them.
#pragma once

#include <string>

#include "morwen/morwenplugin.h"

namespace morwen::bench {

// The service that a loop logs on to.
struct Target {
    std::string m_service = "morwen/localhost";
    bool m_bDelegate = false;   // the service is one that the realm trusts for it; the exports always ask
    bool m_bNegotiate = false;  // by SPNEGO; exports only
    bool m_bBind = false;       // the client sends channel bindings; exports only
};

// The plug-in is started and keeps contexts as long as it lives.
class Package {
public:
    Package();
    ~Package();
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;
};

// What an export hands out.
struct Output {
    SSOChar* m_pszKey = nullptr;
    void* m_pvToken = nullptr;
    SSOLength m_nLength = 0;
    ParasSeq* m_pInformation = nullptr;

    Output() = default;
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
};

// Both halves in one process. Throws std::runtime_error when a step fails.
class ExportLogon {
public:
    explicit ExportLogon(const Target& i_target);

    // The steps, as the two sides take them.
    void Start(Output& o_client) const;
    static void Accept(const void* i_pvToken, SSOLength i_nLength, Output& o_server);
    static void Continue(const SSOChar* i_pszKey, const Output& i_server);
    static void Close(const SSOChar* i_pszKey, Output& o_context);

    void Keep(Output& o_context) const;  // all of them
    void Run() const;                    // and the context released

private:
    std::u16string m_service;
    bool m_bNegotiate;
    bool m_bBind;
};

}  // namespace morwen::bench
