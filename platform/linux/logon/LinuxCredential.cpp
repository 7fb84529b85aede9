#include "platform/linux/logon/LinuxCredential.h"

#include <string_view>

#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/delegation/LogonEvidence.h"
#include "platform/linux/delegation/ServiceLogon.h"
#include "platform/linux/identity/ThreadIdentity.h"
#include "platform/linux/keys/DelegatedTickets.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

using Harrowlib201::SWCharString;
using Harrowlib201::SWCharStringConv;

namespace {

// A name or password with a zero in it would end there for libkrb5 and mean another one.
std::u16string_view Field(const char16_t* i_pszText, uint32_t i_nLength) {
    const std::u16string_view text = i_pszText != nullptr ? std::u16string_view(i_pszText, i_nLength) : u"";
    if (text.find(u'\0') != std::u16string_view::npos || (i_pszText == nullptr && i_nLength != 0)) {
        Fail(SEC_E_UNKNOWN_CREDENTIALS, "the user name, domain or password given is no text");
    }
    return text;
}

std::shared_ptr<InitiatorTickets> TicketsOf(const SEC_WINNT_AUTH_IDENTITY_W& i_identity) {
    if (i_identity.Flags != SEC_WINNT_AUTH_IDENTITY_UNICODE) {
        Fail(SEC_E_UNKNOWN_CREDENTIALS, "the user name and password are not given as UTF-16");
    }
    return std::make_shared<InitiatorTickets>(
        std::make_unique<PasswordLogon>(SWCharStringConv::ToUtf8(Field(i_identity.Domain, i_identity.DomainLength)),
                                        SWCharStringConv::ToUtf8(Field(i_identity.User, i_identity.UserLength)),
                                        SWCharString(Field(i_identity.Password, i_identity.PasswordLength))));
}

// Whom the thread acts as, null for the service: its own tickets must not go out in a user's name.
std::shared_ptr<const TokenIdentity> ActingUser() {
    auto pIdentity = ImpersonatedIdentity();
    return pIdentity != nullptr && !pIdentity->m_bService ? pIdentity : nullptr;
}

// Null leaves a logon to be finished that was started with other credentials.
std::shared_ptr<LogonTickets> TicketsOf(const TokenIdentity& i_user) {
    if (i_user.m_pDelegated == nullptr) {
        return i_user.m_pEvidence;
    }
    return {i_user.m_pDelegated, &i_user.m_pDelegated->Tickets()};
}

std::shared_ptr<LogonTickets> DefaultTickets(krb5_context i_context) {
    const auto pUser = ActingUser();
    return pUser != nullptr ? TicketsOf(*pUser) : InitiatorTickets::Default(i_context);
}

}  // namespace

std::shared_ptr<LinuxCredential> LinuxCredential::Acquire(krb5_context i_context, uint32_t i_nUse,
                                                          const SEC_WINNT_AUTH_IDENTITY_W* i_pIdentity) {
    if (i_nUse == 0 || (i_nUse & ~SECPKG_CRED_BOTH) != 0) {
        Fail(SEC_E_UNKNOWN_CREDENTIALS, "the use " + std::to_string(i_nUse) + " of credentials is not known");
    }
    auto pCredential = std::make_shared<LinuxCredential>();
    if ((i_nUse & SECPKG_CRED_INBOUND) != 0) {
        pCredential->m_pKeys = AcceptorKeys::Default(i_context);
    }
    if ((i_nUse & SECPKG_CRED_OUTBOUND) != 0) {
        pCredential->m_bInitiates = true;
        pCredential->m_pTickets = i_pIdentity != nullptr ? TicketsOf(*i_pIdentity) : DefaultTickets(i_context);
    }
    return pCredential;
}

std::shared_ptr<LinuxCredential> LinuxCredential::OfActingUser(uint32_t i_nUse,
                                                               const SEC_WINNT_AUTH_IDENTITY_W* i_pIdentity) {
    const bool bDefault = i_nUse == SECPKG_CRED_OUTBOUND && i_pIdentity == nullptr && !IsThreadStuck();
    const auto pUser = bDefault ? ActingUser() : nullptr;
    if (pUser == nullptr) {
        return nullptr;
    }
    auto pCredential = std::make_shared<LinuxCredential>();
    pCredential->m_bInitiates = true;
    pCredential->m_pTickets = TicketsOf(*pUser);
    return pCredential;
}

void LinuxCredential::ReleaseHeld() noexcept {
    AcceptorKeys::ReleaseHeld();
    InitiatorTickets::ReleaseHeld();
    ServiceLogon::ReleaseHeld();
}

}  // namespace morwen
