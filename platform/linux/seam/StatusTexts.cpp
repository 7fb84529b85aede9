// What a status or an error code means, in words for an administrator.
#include "platform/linux/seam/StatusTexts.h"

#include <algorithm>
#include <iterator>

namespace morwen {

namespace {

struct CodeText {
    DWORD m_nCode;
    std::string_view m_text;
};

constexpr DWORD Code(SECURITY_STATUS i_nStatus) {
    return static_cast<DWORD>(i_nStatus);
}

constexpr CodeText kTexts[] = {
    {Code(SEC_E_INSUFFICIENT_MEMORY), "There is not enough memory for the logon."},
    {Code(SEC_E_INVALID_HANDLE), "The handle is not open: it was released, or never was one."},
    {Code(SEC_E_UNSUPPORTED_FUNCTION), "This is not available on this platform."},
    {Code(SEC_E_TARGET_UNKNOWN),
     "The realm does not know the service. Check its principal name and that the realm has it."},
    {Code(SEC_E_INTERNAL_ERROR), "Kerberos reported an error that has no status of its own."},
    {Code(SEC_E_SECPKG_NOT_FOUND),
     "Kerberos cannot be used. Check krb5.conf, and that the package is called \"Kerberos\"."},
    {Code(SEC_E_NOT_OWNER), "The caller does not own these credentials."},
    {Code(SEC_E_INVALID_TOKEN), "What the other side sent is no valid Kerberos token."},
    {Code(SEC_E_NO_IMPERSONATION),
     "The thread cannot take on the user's identity. Check that the user has an account on this machine."},
    {Code(SEC_E_LOGON_DENIED),
     "The logon was refused. Check the user name, the password and whether the account is locked or expired."},
    {Code(SEC_E_UNKNOWN_CREDENTIALS), "The credentials given are incomplete or of an unknown kind."},
    {Code(SEC_E_NO_CREDENTIALS),
     "There are no credentials to use. Check the keytab of the service or the tickets of the user."},
    {Code(SEC_E_MESSAGE_ALTERED),
     "A message does not verify: it was altered, or encrypted with another key. Check that the keytab is up to date."},
    {Code(SEC_E_NO_AUTHENTICATING_AUTHORITY),
     "No KDC of the realm can be reached. Check the realm's configuration, the name service and the network."},
    {Code(SEC_E_CONTEXT_EXPIRED), "The ticket or the logon has expired. Log on again."},
    {Code(SEC_E_BUFFER_TOO_SMALL), "The buffer is too small for the token."},
    {Code(SEC_E_WRONG_PRINCIPAL),
     "The ticket is for another service or another key. Check the service's principal name and its keytab."},
    {Code(SEC_E_TIME_SKEW), "The clocks of the machines differ too much. Set them by a time service."},
    {Code(SEC_E_KDC_UNKNOWN_ETYPE),
     "There is no common encryption type. Check the keys of the account and the permitted encryption types."},
    {Code(SEC_E_BAD_BINDINGS),
     "The channel bindings of client and service differ. Check that the service's setting belongs to the certificate "
     "that "
     "its clients see; if it does, somebody stands between them."},
    {ERROR_ACCESS_DENIED, "Access is denied."},
    {ERROR_INVALID_HANDLE, "The handle is not open: it was closed, or never was one."},
    {ERROR_NOT_ENOUGH_MEMORY, "There is not enough memory."},
    {ERROR_NOT_SUPPORTED, "This is not supported."},
    {ERROR_INVALID_PARAMETER, "A parameter is wrong."},
    {ERROR_INSUFFICIENT_BUFFER, "The buffer is too small."},
    {ERROR_MR_MID_NOT_FOUND, "There is no text for this code."},
    {ERROR_NO_TOKEN, "The thread has no token of its own: it does not impersonate anybody."},
};

}  // namespace

std::string_view StatusText(DWORD i_nCode) noexcept {
    const auto* const pFound = std::find_if(std::begin(kTexts), std::end(kTexts),
                                            [i_nCode](const CodeText& i_entry) { return i_entry.m_nCode == i_nCode; });
    return pFound != std::end(kTexts) ? pFound->m_text : std::string_view();
}

}  // namespace morwen
