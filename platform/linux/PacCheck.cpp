#include "platform/linux/PacCheck.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/linux/Krb5Owners.h"
#include "platform/linux/Krb5Words.h"
#include "platform/linux/SspiFailure.h"

// libkrb5 has exported both since 1.8, for its GSS-API library, but its header does not declare them.
extern "C" {
krb5_error_code krb5_auth_con_get_authdata_context(krb5_context i_context, krb5_auth_context i_exchange,
                                                   void** o_ppvFindings);
krb5_error_code krb5_authdata_get_attribute(krb5_context i_context, void* i_pvFindings, const krb5_data* i_pName,
                                            krb5_boolean* o_pbVerified, krb5_boolean* o_pbComplete, krb5_data* o_pValue,
                                            krb5_data* o_pDisplay, int* io_pnMore);
}

namespace morwen {

namespace {

using AuthorizationData = Krb5Owner<krb5_authdata**, krb5_free_authdata>;
using Pac = Krb5Owner<krb5_pac, krb5_pac_free>;

// Whether libkrb5 has verified this very PAC while it read the request: with the key that opened the ticket, for the
// ticket's user and time. It goes on when it has not, and tells nobody who does not ask. No is no verdict: it may never
// have looked.
bool IsVerified(krb5_context i_context, krb5_auth_context i_exchange, std::span<const uint8_t> i_pac) {
    void* pvFindings = nullptr;
    if (i_exchange == nullptr || krb5_auth_con_get_authdata_context(i_context, i_exchange, &pvFindings) != 0 ||
        pvFindings == nullptr) {
        return false;
    }
    char name[] = "urn:mspac:";  // all of it
    const krb5_data attribute{KV5M_DATA, sizeof name - 1, name};
    krb5_boolean bVerified = 0;
    krb5_boolean bComplete = 0;
    int nMore = -1;
    Krb5Data whole(i_context);
    Krb5Data display(i_context);
    const krb5_error_code nCode = krb5_authdata_get_attribute(i_context, pvFindings, &attribute, &bVerified, &bComplete,
                                                              whole.Receive(), display.Receive(), &nMore);
    const auto bytes = BytesOf(*whole);
    return nCode == 0 && bVerified != 0 && std::equal(bytes.begin(), bytes.end(), i_pac.begin(), i_pac.end());
}

// Tries the keys that can have decrypted the ticket: those of its encryption type, and of its key version if it has
// one.
krb5_error_code Verify(krb5_context i_context, const AcceptorKeys& i_keys, const krb5_ticket& i_ticket,
                       krb5_pac i_pac) {
    krb5_error_code nCode = KRB5KRB_AP_ERR_NOKEY;
    for (const krb5_keytab_entry& entry : i_keys.Entries()) {
        const bool bVersionFits = i_ticket.enc_part.kvno == 0 || (entry.vno & 0xFF) == (i_ticket.enc_part.kvno & 0xFF);
        if (!bVersionFits || entry.key.enctype != i_ticket.enc_part.enctype) {
            continue;
        }
        nCode = krb5_pac_verify(i_context, i_pac, i_ticket.enc_part2->times.authtime, i_ticket.enc_part2->client,
                                &entry.key, nullptr);
        if (nCode == 0) {
            return 0;
        }
    }
    return nCode;
}

}  // namespace

std::optional<std::vector<uint8_t>> CheckPac(krb5_context i_context, const AcceptorKeys& i_keys,
                                             krb5_auth_context i_exchange, const krb5_ticket& i_ticket) {
    AuthorizationData found(i_context);
    krb5_error_code nCode = krb5_find_authdata(i_context, i_ticket.enc_part2->authorization_data, nullptr,
                                               KRB5_AUTHDATA_WIN2K_PAC, found.Receive());
    const auto check = [&](krb5_error_code i_nCode, const char* i_pszFault) {
        if (i_nCode == ENOMEM) {
            throw std::bad_alloc();
        }
        if (i_nCode != 0) {
            Fail(SEC_E_LOGON_DENIED, "refused a logon of " + PrincipalText(i_context, i_ticket.enc_part2->client) +
                                         ": the PAC in the ticket " + i_pszFault + ": " +
                                         ErrorWords(i_context, i_nCode));
        }
    };
    check(nCode, "cannot be looked for");
    if (!found || found.get()[0] == nullptr) {
        return std::nullopt;
    }
    // A KDC makes one. Of two, nobody could say whose word counts.
    check(found.get()[1] != nullptr ? EINVAL : 0, "is not the only one");
    const krb5_authdata& only = *found.get()[0];
    Pac pac(i_context);
    check(krb5_pac_parse(i_context, only.contents, only.length, pac.Receive()), "cannot be read");
    if (!IsVerified(i_context, i_exchange, {only.contents, only.length})) {
        check(Verify(i_context, i_keys, i_ticket, pac.get()), "is not signed for this service and user");
    }
    Krb5Data buffer(i_context);
    nCode = krb5_pac_get_buffer(i_context, pac.get(), KRB5_PAC_LOGON_INFO, buffer.Receive());
    if (nCode == ENOENT) {
        return std::nullopt;
    }
    check(nCode, "has no logon information that stands out");
    const auto bytes = BytesOf(*buffer);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

}  // namespace morwen
