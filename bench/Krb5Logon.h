// The same exchange on bare libkrb5: what any logon costs that checks what must be checked.
#pragma once

#include <cstddef>
#include <vector>

#include "bench/ExportLogon.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen::bench {

// How many keys the keytab has. Throws std::runtime_error.
size_t CountKeys();

// Both halves in one process, mutual, the replay cache on: one context, keys and tickets in memory. Used by one thread.
// Throws std::runtime_error when a step fails.
class Krb5Logon {
public:
    explicit Krb5Logon(const Target& i_target);
    ~Krb5Logon();
    Krb5Logon(const Krb5Logon&) = delete;
    Krb5Logon& operator=(const Krb5Logon&) = delete;

    void Run();

private:
    static krb5_error_code MakeChecksum(krb5_context i_context, krb5_auth_context io_exchange, void* i_pvSelf,
                                        krb5_data** o_ppChecksum);
    void HoldKeys();
    void HoldTicket();
    void Forward(krb5_auth_context io_exchange);
    void Receive(krb5_auth_context io_exchange, const krb5_checksum& i_checksum);

    const bool m_bDelegate;
    krb5_context m_context = nullptr;
    krb5_principal m_server = nullptr;
    krb5_ccache m_cache = nullptr;
    krb5_keytab m_keytab = nullptr;
    krb5_creds* m_pTicket = nullptr;
    std::vector<char> m_checksum;
    krb5_data m_checksumData{};
};

}  // namespace morwen::bench
