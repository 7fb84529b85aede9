// The words that go with a failed status, and the table from libkrb5's codes to statuses.
#include "platform/linux/krb5/FailureText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

namespace {

// Plain bytes: a thread_local with a destructor would keep the library loaded.
struct LastFailure {
    SECURITY_STATUS m_nStatus;
    uint32_t m_nLength;
    std::array<char, 511> m_aText;
};
constinit thread_local LastFailure t_lastFailure{};

struct CodeStatus {
    krb5_error_code m_nCode;
    SECURITY_STATUS m_nStatus;
};

constexpr CodeStatus kStatuses[] = {
    // The client: what it gave, or the account behind, is not accepted.
    {KRB5KDC_ERR_PREAUTH_FAILED, SEC_E_LOGON_DENIED},
    {KRB5_PREAUTH_FAILED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_PREAUTH_REQUIRED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_PREAUTH_EXPIRED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_PADATA_TYPE_NOSUPP, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_C_OLD_MAST_KVNO, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_CLIENT_REVOKED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_CLIENT_NOTYET, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_TGT_REVOKED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_NULL_KEY, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_KEY_EXP, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_NAME_EXP, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_NEVER_VALID, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_POLICY, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_BADOPTION, SEC_E_LOGON_DENIED},
    {KRB5_LIBOS_CANTREADPWD, SEC_E_LOGON_DENIED},
    {KRB5_LIBOS_BADPWDMATCH, SEC_E_LOGON_DENIED},
    {KRB5_LIBOS_PWDINTR, SEC_E_LOGON_DENIED},
    {KRB5KRB_AP_ERR_REPEAT, SEC_E_LOGON_DENIED},
    {KRB5_RC_REPLAY, SEC_E_LOGON_DENIED},
    {KRB5KRB_AP_ERR_BADADDR, SEC_E_LOGON_DENIED},
    {KRB5KRB_AP_ERR_ILL_CR_TKT, SEC_E_LOGON_DENIED},
    {KRB5KRB_AP_PATH_NOT_ACCEPTED, SEC_E_LOGON_DENIED},
    {KRB5KDC_ERR_PATH_NOT_ACCEPTED, SEC_E_LOGON_DENIED},
    // The service that a ticket was asked for.
    {KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_S_OLD_MAST_KVNO, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_PRINCIPAL_NOT_UNIQUE, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_SERVER_NOMATCH, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_SERVICE_EXP, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_SERVICE_REVOKED, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_SERVICE_NOTYET, SEC_E_TARGET_UNKNOWN},
    {KRB5KDC_ERR_MUST_USE_USER2USER, SEC_E_TARGET_UNKNOWN},
    {KRB5KRB_AP_ERR_USER_TO_USER_REQUIRED, SEC_E_TARGET_UNKNOWN},
    {KRB5_ERR_BAD_HOSTNAME, SEC_E_TARGET_UNKNOWN},
    {KRB5_ERR_HOST_REALM_UNKNOWN, SEC_E_TARGET_UNKNOWN},
    {KRB5_ERR_NUMERIC_REALM, SEC_E_TARGET_UNKNOWN},
    // A configuration that nothing can be done with.
    {KRB5_CONFIG_BADFORMAT, SEC_E_SECPKG_NOT_FOUND},
    {KRB5_CONFIG_CANTOPEN, SEC_E_SECPKG_NOT_FOUND},
    // Tickets and keys that this process should hold.
    {KRB5_FCC_NOFILE, SEC_E_NO_CREDENTIALS},
    {KRB5_FCC_PERM, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_NOTFOUND, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_END, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_IO, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_FORMAT, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_BADNAME, SEC_E_NO_CREDENTIALS},
    {KRB5_CC_UNKNOWN_TYPE, SEC_E_NO_CREDENTIALS},
    {KRB5_CCACHE_BADVNO, SEC_E_NO_CREDENTIALS},
    {KRB5_KCM_NO_SERVER, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_NOTFOUND, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_END, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_IOERR, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_BADNAME, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_UNKNOWN_TYPE, SEC_E_NO_CREDENTIALS},
    {KRB5_KT_FORMAT, SEC_E_NO_CREDENTIALS},
    {KRB5_KEYTAB_BADVNO, SEC_E_NO_CREDENTIALS},
    {KRB5_NO_TKT_SUPPLIED, SEC_E_NO_CREDENTIALS},
    {KRB5_NO_TKT_IN_RLM, SEC_E_NO_CREDENTIALS},
    {KRB5_NOCREDS_SUPPLIED, SEC_E_NO_CREDENTIALS},
    {KRB5KRB_AP_ERR_NO_TGT, SEC_E_NO_CREDENTIALS},
    {ENOENT, SEC_E_NO_CREDENTIALS},
    {EACCES, SEC_E_NO_CREDENTIALS},
    // No KDC to ask.
    {KRB5_KDC_UNREACH, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    {KRB5_REALM_UNKNOWN, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    {KRB5_REALM_CANT_RESOLVE, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    {KRB5_CONFIG_NODEFREALM, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    {KRB5KDC_ERR_WRONG_REALM, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    {KRB5KDC_ERR_SVC_UNAVAILABLE, SEC_E_NO_AUTHENTICATING_AUTHORITY},
    // Clocks.
    {KRB5KRB_AP_ERR_SKEW, SEC_E_TIME_SKEW},
    {KRB5_KDCREP_SKEW, SEC_E_TIME_SKEW},
    {KRB5KRB_AP_ERR_TKT_NYV, SEC_E_TIME_SKEW},
    {KRB5KRB_AP_ERR_TKT_EXPIRED, SEC_E_CONTEXT_EXPIRED},
    // A ticket for somebody else, or for a key that is not here.
    {KRB5KRB_AP_ERR_NOT_US, SEC_E_WRONG_PRINCIPAL},
    {KRB5KRB_AP_WRONG_PRINC, SEC_E_WRONG_PRINCIPAL},
    {KRB5KRB_AP_ERR_NOKEY, SEC_E_WRONG_PRINCIPAL},
    {KRB5KRB_AP_ERR_BADKEYVER, SEC_E_WRONG_PRINCIPAL},
    {KRB5_KT_KVNONOTFOUND, SEC_E_WRONG_PRINCIPAL},
    {KRB5_MUTUAL_FAILED, SEC_E_WRONG_PRINCIPAL},
    {KRB5KRB_AP_ERR_MUT_FAIL, SEC_E_WRONG_PRINCIPAL},
    // Bytes that do not verify, and bytes that mean nothing.
    {KRB5KRB_AP_ERR_BAD_INTEGRITY, SEC_E_MESSAGE_ALTERED},
    {KRB5KRB_AP_ERR_MODIFIED, SEC_E_MESSAGE_ALTERED},
    {KRB5_KDCREP_MODIFIED, SEC_E_MESSAGE_ALTERED},
    {KRB5KRB_AP_ERR_BADMATCH, SEC_E_INVALID_TOKEN},
    {KRB5KRB_AP_ERR_MSG_TYPE, SEC_E_INVALID_TOKEN},
    {KRB5_BADMSGTYPE, SEC_E_INVALID_TOKEN},
    {KRB5KRB_AP_ERR_BADVERSION, SEC_E_INVALID_TOKEN},
    {KRB5KDC_ERR_BAD_PVNO, SEC_E_INVALID_TOKEN},
    {KRB5KRB_AP_ERR_V4_REPLY, SEC_E_INVALID_TOKEN},
    {KRB5KRB_AP_ERR_TKT_INVALID, SEC_E_INVALID_TOKEN},
    {KRB5KRB_AP_ERR_INAPP_CKSUM, SEC_E_INVALID_TOKEN},
    {KRB5_BAD_MSIZE, SEC_E_INVALID_TOKEN},
    // Encryption types.
    {KRB5KDC_ERR_ETYPE_NOSUPP, SEC_E_KDC_UNKNOWN_ETYPE},
    {KRB5_PROG_ETYPE_NOSUPP, SEC_E_KDC_UNKNOWN_ETYPE},
    {KRB5_WRONG_ETYPE, SEC_E_KDC_UNKNOWN_ETYPE},
    {KRB5_BAD_ENCTYPE, SEC_E_KDC_UNKNOWN_ETYPE},
    {KRB5_NOPERM_ETYPE, SEC_E_KDC_UNKNOWN_ETYPE},
    {KRB5_CONFIG_ETYPE_NOSUPP, SEC_E_KDC_UNKNOWN_ETYPE},
    // No local account for a principal.
    {KRB5_LNAME_NOTRANS, SEC_E_NO_IMPERSONATION},
    {KRB5_NO_LOCALNAME, SEC_E_NO_IMPERSONATION},
    // Memory.
    {ENOMEM, SEC_E_INSUFFICIENT_MEMORY},
    {KRB5_CC_NOMEM, SEC_E_INSUFFICIENT_MEMORY},
    {KRB5_RC_MALLOC, SEC_E_INSUFFICIENT_MEMORY},
    {KRB5_RC_IO_MALLOC, SEC_E_INSUFFICIENT_MEMORY},
};

// The last 8 bits of a code count within its table of codes.
constexpr bool IsAsn1Code(krb5_error_code i_nCode) {
    return (i_nCode & ~0xFF) == ERROR_TABLE_BASE_asn1;
}

// How much of the text fits without cutting a character in two.
size_t FittingLength(std::string_view i_text, size_t i_nRoom) {
    if (i_text.size() <= i_nRoom) {
        return i_text.size();
    }
    size_t nLength = i_nRoom;
    while (nLength > 0 && (static_cast<unsigned char>(i_text[nLength]) & 0xC0U) == 0x80U) {
        --nLength;
    }
    return nLength;
}

}  // namespace

SECURITY_STATUS FailWith(SECURITY_STATUS i_nStatus, std::string_view i_text) noexcept {
    LastFailure& last = t_lastFailure;
    const size_t nLength = FittingLength(i_text, last.m_aText.size());
    last.m_nStatus = i_nStatus;
    last.m_nLength = static_cast<uint32_t>(nLength);
    if (nLength > 0) {
        // The text may be a part of the one before.
        std::memmove(last.m_aText.data(), i_text.data(), nLength);
        HideControls(std::span(last.m_aText).first(nLength));
    }
    return i_nStatus;
}

std::string_view FailureText(SECURITY_STATUS i_nStatus) noexcept {
    const LastFailure& last = t_lastFailure;
    return i_nStatus == last.m_nStatus ? std::string_view(last.m_aText.data(), last.m_nLength) : std::string_view();
}

SECURITY_STATUS StatusFromKrb5(krb5_error_code i_nCode) noexcept {
    if (i_nCode == 0) {
        return SEC_E_OK;
    }
    if (IsAsn1Code(i_nCode)) {
        return SEC_E_INVALID_TOKEN;
    }
    const auto* const pEnd = std::end(kStatuses);
    const auto* const pFound = std::find_if(
        std::begin(kStatuses), pEnd, [i_nCode](const CodeStatus& i_entry) { return i_entry.m_nCode == i_nCode; });
    return pFound != pEnd ? pFound->m_nStatus : SEC_E_INTERNAL_ERROR;
}

SECURITY_STATUS FailWithKrb5(krb5_context i_context, krb5_error_code i_nCode,
                             std::string_view i_whatWasTried) noexcept {
    const SECURITY_STATUS nStatus = StatusFromKrb5(i_nCode);
    try {
        std::string text(i_whatWasTried);
        text.append(": ").append(ErrorWords(i_context, i_nCode));
        return FailWith(nStatus, text);
    } catch (const std::bad_alloc&) {
        return FailWith(nStatus, i_whatWasTried);
    }
}

}  // namespace morwen
