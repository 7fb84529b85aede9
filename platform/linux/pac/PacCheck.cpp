#include "platform/linux/pac/PacCheck.h"

#include <cerrno>
#include <new>
#include <utility>

#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/wire/PacLogonInfo.h"

namespace morwen {

namespace {

using AuthorizationData = Krb5Owner<krb5_authdata**, krb5_free_authdata>;
using Pac = Krb5Owner<krb5_pac, krb5_pac_free>;

}  // namespace

PacInformation CheckPac(krb5_context i_context, const krb5_keyblock* i_pKey, const krb5_ticket& i_ticket) {
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
        return {};
    }
    // A KDC makes one. Of two, nobody could say whose word counts.
    check(found.get()[1] != nullptr ? EINVAL : 0, "is not the only one");
    Pac pac(i_context);
    check(krb5_pac_parse(i_context, found.get()[0]->contents, found.get()[0]->length, pac.Receive()), "cannot be read");
    // Without a key the library would find every signature right.
    check(i_pKey != nullptr ? krb5_pac_verify(i_context, pac.get(), i_ticket.enc_part2->times.authtime,
                                              i_ticket.enc_part2->client, i_pKey, nullptr)
                            : krb5_error_code{KRB5KRB_AP_ERR_NOKEY},
          "is not signed for this service and user");
    const auto read = [&](krb5_ui_4 i_nType) -> std::shared_ptr<const std::vector<uint8_t>> {
        Krb5Data buffer(i_context);
        const krb5_error_code nRead = krb5_pac_get_buffer(i_context, pac.get(), i_nType, buffer.Receive());
        if (nRead == ENOENT) {
            return nullptr;
        }
        check(nRead, "has more than one of its parts");
        const auto bytes = BytesOf(*buffer);
        return std::make_shared<const std::vector<uint8_t>>(bytes.begin(), bytes.end());
    };
    PacInformation information{read(KRB5_PAC_LOGON_INFO), {}};
    const auto pNames = read(KRB5_PAC_UPN_DNS_INFO);
    if (information.m_pLogonInfo != nullptr || pNames != nullptr) {
        auto name = information.m_pLogonInfo != nullptr ? ReadPacAccountName(*information.m_pLogonInfo) : std::nullopt;
        name = !name && pNames != nullptr ? ReadPacSamName(*pNames) : std::move(name);
        information.m_accountName = name ? std::move(name) : std::u16string();
    }
    return information;
}

}  // namespace morwen
