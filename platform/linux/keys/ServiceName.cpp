#include "platform/linux/keys/ServiceName.h"

#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// Sets the configured realm of a two-part name's host; without one the realm stays empty.
krb5_error_code SetHostRealm(krb5_context i_context, krb5_principal io_principal) {
    if (io_principal->length != 2) {
        return 0;
    }
    const krb5_data& host = io_principal->data[1];
    Krb5Owner<char**, krb5_free_host_realm> realms(i_context);
    const krb5_error_code nCode =
        krb5_get_host_realm(i_context, std::string(host.data, host.length).c_str(), realms.Receive());
    if (nCode != 0 || realms.get()[0] == nullptr) {
        return nCode;
    }
    return krb5_set_principal_realm(i_context, io_principal, realms.get()[0]);
}

}  // namespace

Krb5Principal ServicePrincipal(krb5_context i_context, const std::string& i_targetName) {
    Krb5Principal principal(i_context);
    krb5_error_code nCode =
        krb5_parse_name_flags(i_context, i_targetName.c_str(), KRB5_PRINCIPAL_PARSE_NO_DEF_REALM, principal.Receive());
    if (nCode == 0 && principal->realm.length == 0) {
        nCode = SetHostRealm(i_context, principal.get());
    }
    if (nCode != 0) {
        Fail(nCode == ENOMEM ? SEC_E_INSUFFICIENT_MEMORY : SEC_E_TARGET_UNKNOWN,
             "the target name " + i_targetName + " names no service: " + ErrorWords(i_context, nCode));
    }
    principal->type = KRB5_NT_SRV_INST;
    return principal;
}

}  // namespace morwen
