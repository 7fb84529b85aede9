#include "handlers/kerberos/KerberosSSPICredentials.h"

#include <optional>
#include <string>

#include "errors/SSOException.h"
#include "handlers/SSOHandler.h"
#include "handlers/SystemErrorText.h"
#include "handlers/kerberos/ActingAsUser.h"
#include "harrow/log/STrace.h"
#include "platform/OsText.h"
#include "platform/Platform.h"

namespace morwen {

namespace {

ULONG CredentialUse(uint32_t i_nCredentialType) {
    switch (i_nCredentialType) {
        case SSOHandler::kInbound:
            return SECPKG_CRED_INBOUND;
        case SSOHandler::kOutbound:
            return SECPKG_CRED_OUTBOUND;
        case SSOHandler::kBoth:
            return SECPKG_CRED_BOTH;
        default:
            S_FAIL(
                "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Unexpected credential type "
                "requested!");
            throw SSOException(SSO_ERROR);
    }
}

// The identity record, and the texts that it points into.
class AuthIdentity {
public:
    AuthIdentity(const SWCharString& i_ssUser, const SWCharString& i_ssPassword, size_t i_nBackslash)
        : m_domain(SWCharString(i_ssUser.view().substr(0, i_nBackslash))),
          m_user(SWCharString(i_ssUser.view().substr(i_nBackslash + 1))),
          m_password(i_ssPassword) {
        const size_t nUserLength = i_ssUser.length() - i_nBackslash - 1;
        m_identity.User = AsField(m_identity.User, m_user);
        m_identity.UserLength = static_cast<ULONG>(nUserLength);
        m_identity.Domain = AsField(m_identity.Domain, m_domain);
        m_identity.DomainLength = static_cast<ULONG>(i_nBackslash);
        m_identity.Password = AsField(m_identity.Password, m_password);
        m_identity.PasswordLength = static_cast<ULONG>(i_ssPassword.length());
        m_identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    }

    SEC_WINNT_AUTH_IDENTITY_W* get() noexcept { return &m_identity; }

private:
    // The record's fields have a unit type of their own on some systems.
    template <class Field>
    static Field AsField(Field, OsText& i_text) noexcept {
        return reinterpret_cast<Field>(i_text.get());
    }

    OsText m_domain;
    OsText m_user;
    OsText m_password;
    SEC_WINNT_AUTH_IDENTITY_W m_identity{};
};

std::unique_ptr<AuthIdentity> MakeIdentity(const SWCharString& i_ssUser, const SWCharString& i_ssPassword) {
    if (i_ssUser.isEmpty()) {
        S_TRACE("ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Called for SSO.");
        S_ASSERT_TEXT(i_ssPassword.isEmpty(), "i_ssPassword.isEmpty()");
        return nullptr;
    }
    S_TRACE("ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Username = %1, Password = >>not traced<<",
            i_ssUser);
    const size_t nBackslash = i_ssUser.view().find(u'\\');
    if (nBackslash == std::u16string_view::npos) {
        S_REASON(
            "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- %1 is not the right format for the "
            "username.",
            i_ssUser);
        throw SSOException(SSO_ERROR, kMsgUserNameFormat);
    }
    return std::make_unique<AuthIdentity>(i_ssUser, i_ssPassword, nBackslash);
}

[[noreturn]] void ThrowForStatus(SECURITY_STATUS i_nStatus) {
    NoteReason(i_nStatus);
    switch (i_nStatus) {
        case SEC_E_INSUFFICIENT_MEMORY:
            S_TRACE(
                "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Out of memory in "
                "AcquireCredentialsHandle().");
            throw SSOException(SSOException::OutOfMemory());
        case SEC_E_SECPKG_NOT_FOUND:
            S_TRACE(
                "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Could not load the Kereros security "
                "package.");
            throw SSOException(SSO_ERROR, kMsgNoPackage, {u"Kerberos/SSPI"});
        case SEC_E_NOT_OWNER:
        case SEC_E_UNKNOWN_CREDENTIALS:
        case SEC_E_NO_CREDENTIALS:
            S_TRACE(
                "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Credentials error.  Is the calling "
                "thread running as a valid user?");
            // Which credentials, and what is wrong with them.
            S_TRACE("ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- %1", GetErrorText(i_nStatus));
            throw SSOException(SSO_ERROR, kMsgCredentials);
        default:
            S_TRACE(
                "ssoplugin: KerberosSSPICredentials::KerberosSSPICredentials() -- Unknown failure in "
                "AcquireCredentialsHandle(): %1",
                GetErrorText(i_nStatus));
            throw SSOException(SSO_ERROR, kMsgCredentials);
    }
}

bool IsSet(const CredHandle& i_handle) noexcept {
    return i_handle.dwLower != 0 || i_handle.dwUpper != 0;
}

}  // namespace

KerberosSSPICredentials::KerberosSSPICredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                                 uint32_t i_nCredentialType) {
    const std::unique_ptr<AuthIdentity> pIdentity = MakeIdentity(i_ssUser, i_ssPassword);
    const ULONG nUse = CredentialUse(i_nCredentialType);
    OsText package(u"Kerberos"_ss);
    // A user's keys would open no ticket for the service.
    std::optional<EarlierUser> earlier;
    if (nUse == SECPKG_CRED_INBOUND && !Platform::Sspi().AcceptsAsService()) {
        earlier.emplace();
        if (!earlier->Leave()) {
            throw SSOException(SSO_ERROR, kMsgImpersonation);
        }
    }
    const SECURITY_STATUS nStatus = Platform::Sspi().AcquireCredentialsHandleW(
        nullptr, package.get(), nUse, nullptr, pIdentity ? pIdentity->get() : nullptr, nullptr, nullptr, &m_handle,
        &m_tsExpiry);
    const bool bResumed = !earlier || earlier->Resume();
    if (nStatus == SEC_E_OK && bResumed) {
        return;
    }
    if (IsSet(m_handle)) {
        Platform::Sspi().FreeCredentialsHandle(&m_handle);
    }
    if (!bResumed) {
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    ThrowForStatus(nStatus);
}

KerberosSSPICredentials::~KerberosSSPICredentials() {
    if (!IsSet(m_handle)) {
        return;
    }
    const SECURITY_STATUS nStatus = Platform::Sspi().FreeCredentialsHandle(&m_handle);
    if (nStatus == SEC_E_INVALID_HANDLE) {
        S_FAIL("FreeCredentialsHandle failed: SEC_E_INVALID_HANDLE");
    } else if (nStatus != SEC_E_OK && Harrowlib201::ShouldAssert()) {
        try {
            S_FAIL(("FreeCredentialsHandle failed: Unknown error: " + std::to_string(nStatus)).c_str());
        } catch (const std::bad_alloc&) {
            S_FAIL("FreeCredentialsHandle failed: Unknown error: ");
        }
    }
}

}  // namespace morwen
