#include "platform/linux/PacCheck.h"

#include "platform/linux/Krb5Owners.h"
#include "platform/linux/Krb5Words.h"
#include "platform/linux/SspiFailure.h"

namespace morwen {

namespace {

using AuthorizationData = Krb5Owner<krb5_authdata**, krb5_free_authdata>;
using Pac = Krb5Owner<krb5_pac, krb5_pac_free>;

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

void CheckPac(krb5_context i_context, const AcceptorKeys& i_keys, const krb5_ticket& i_ticket) {
    AuthorizationData found(i_context);
    krb5_error_code nCode = krb5_find_authdata(i_context, i_ticket.enc_part2->authorization_data, nullptr,
                                               KRB5_AUTHDATA_WIN2K_PAC, found.Receive());
    if (nCode == ENOMEM) {
        throw std::bad_alloc();
    }
    for (krb5_authdata** ppElement = found.get(); ppElement != nullptr && *ppElement != nullptr; ++ppElement) {
        Pac pac(i_context);
        nCode = krb5_pac_parse(i_context, (*ppElement)->contents, (*ppElement)->length, pac.Receive());
        if (nCode == 0) {
            nCode = Verify(i_context, i_keys, i_ticket, pac.get());
        }
        if (nCode != 0) {
            Fail(SEC_E_LOGON_DENIED, "refused a logon of " + PrincipalText(i_context, i_ticket.enc_part2->client) +
                                         ": the PAC in the ticket is not signed for this service and user: " +
                                         ErrorWords(i_context, nCode));
        }
    }
}

}  // namespace morwen
