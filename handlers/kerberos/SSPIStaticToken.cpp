#include "handlers/kerberos/SSPIStaticToken.h"

#include <new>
#include <string_view>

#include "errors/SSOException.h"
#include "handlers/ActingLevel.h"
#include "handlers/ActingThreads.h"
#include "handlers/SystemErrorText.h"
#include "handlers/SystemFailure.h"
#include "handlers/kerberos/ActingAsUser.h"
#include "handlers/kerberos/Renegotiation.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr RevertTexts kRevertTexts = {
    "ssoplugin: SSPIStaticToken::RevertSecurityContext() failed -- revert using RevertToSelf(). Error %d", "false",
    "SSPIStaticToken::Revert() failed to revert to security context of process."};

// Whose context it is, as the package says it; empty when it does not.
class UserName {
public:
    explicit UserName(CtxtHandle* i_pContext) {
        if (Platform::Sspi().QueryContextAttributesW(i_pContext, SECPKG_ATTR_NAMES, &m_names) != SEC_E_OK) {
            m_names.sUserName = nullptr;
        }
    }
    ~UserName() {
        if (m_names.sUserName != nullptr) {
            static_cast<void>(Platform::Sspi().FreeContextBuffer(m_names.sUserName));
        }
    }
    UserName(const UserName&) = delete;
    UserName& operator=(const UserName&) = delete;

    std::u16string_view Text() const noexcept {
        return m_names.sUserName != nullptr ? reinterpret_cast<const char16_t*>(m_names.sUserName) : u"";
    }

private:
    SecPkgContext_NamesW m_names{};
};

std::optional<SDateTime> ReadExpiry(CtxtHandle* i_pContext) {
    SecPkgContext_Lifespan lifespan{};
    // A failure leaves the zeros of 1601: expired.
    static_cast<void>(Platform::Sspi().QueryContextAttributesW(i_pContext, SECPKG_ATTR_LIFESPAN, &lifespan));
    const FILETIME fileTime = {lifespan.tsExpiry.LowPart, static_cast<DWORD>(lifespan.tsExpiry.HighPart)};
    SYSTEMTIME date{};
    if (!Platform::Kernel().FileTimeToSystemTime(&fileTime, &date)) {
        return std::nullopt;
    }
    return SDateTime(date.wYear, date.wMonth, date.wDay, date.wHour, date.wMinute, date.wSecond, date.wMilliseconds,
                     STimeZone::TZ_Local);
}

}  // namespace

SSPIStaticToken::SSPIStaticToken(const CtxtHandle* i_pContextHandle, const SSOHandlerPtr& i_pHandler)
    : StaticToken(u"SSPI"_ss, i_pHandler) {
    S_ASSERT_MSG(i_pContextHandle, "ssoplugin: SSPIStaticToken::SSPIStaticToken() -- NULL context handle!");
    if (i_pContextHandle == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    CtxtHandle handle = *i_pContextHandle;
    const auto expiry = ReadExpiry(&handle);
    {
        const CS_Locker locker(m_times);
        m_expiry = expiry;
    }
    if (SSPIStaticToken::Expired(m_created) || ExpiredByConfiguration(m_created)) {
        S_TRACE("ssoplugin: SSPIStaticToken::SSPIStaticToken() -- This token has already expired!");
    }
    const CSmartWriteLocker locker(m_lock);
    m_handle = handle;  // last: until here the context is the caller's
}

SSPIStaticToken::~SSPIStaticToken() {
    try {
        const CSmartWriteLocker locker(m_lock);
        if ((m_handle.dwLower != 0 || m_handle.dwUpper != 0) &&
            Platform::Sspi().DeleteSecurityContext(&m_handle) != SEC_E_OK) {
            S_TRACE("ssoplugin: SSPIStaticToken::~SSPIStaticToken() -- Could not delete context handle.");
        }
    } catch (...) {
        S_TRACE("ssoplugin: SSPIStaticToken::~SSPIStaticToken() -- Unexpected exception!");
    }
}

void SSPIStaticToken::Impersonate() {
    const ActingThreads::Place place;
    const CSmartWriteLocker locker(m_lock);
    const SECURITY_STATUS nStatus =
        MayBeCounted() ? Platform::Sspi().ImpersonateSecurityContext(&m_handle) : SEC_E_NO_IMPERSONATION;
    if (nStatus != SEC_E_OK) {
        NoteReason(nStatus);
        S_TRACE("ssoplugin: SSPIStaticToken::Impersonate() -- Could not impersonate.");
        ThrowSystemFailure(nStatus, kMsgImpersonation);
    }
    if (!IsThreadActing()) {
        place.Refuse(RevertFromUser(&m_handle, kRevertTexts));
        S_TRACE("ssoplugin: SSPIStaticToken::Impersonate() -- Could not impersonate.");
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    place.Begin(*this);
}

void SSPIStaticToken::Revert() {
    const CSmartWriteLocker locker(m_lock);
    const bool bImpersonated = GetImpersonationCount() > 0;
    if (!bImpersonated) {
        S_TRACE("ssoplugin: SSPIStaticToken::Revert() called for context that had not been impersonated.");
    }
    if (!(bImpersonated ? RevertFromUser(&m_handle, kRevertTexts) : RevertToProcess(kRevertTexts))) {
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
    ActingThreads::End();
}

std::optional<SDateTime> SSPIStaticToken::GetExpiry() const {
    const CS_Locker locker(m_times);
    return m_expiry;
}

bool SSPIStaticToken::Expired(SDateTime i_now) {
    const auto expiry = GetExpiry();
    if (!expiry) {
        S_TRACE("ssoplugin: SSPIStaticToken::Expired() -- Could not read expiry time.  Treating as expired.");
        return true;
    }
    if (i_now > *expiry) {
        S_TRACE("ssoplugin: SSPIStaticToken::Expired() -- expired!");
        return true;
    }
    return false;
}

STimeSpan SSPIStaticToken::GetTimeToExpiry(SDateTime i_now) {
    const auto expiry = GetExpiry();
    return expiry ? *expiry - i_now : STimeSpan();
}

STimeSpan SSPIStaticToken::GetLifetime() {
    const CS_Locker locker(m_times);
    return m_expiry ? *m_expiry - m_lastNegotiated : STimeSpan();
}

SWCharString SSPIStaticToken::GetAuthority() {
    try {
        const CSmartReadLocker locker(m_lock);
        const UserName name(&m_handle);
        const std::u16string_view text = name.Text();
        const size_t nAt = text.rfind(u'@');
        // As some packages write it, the domain comes first.
        return SWCharString(nAt != text.npos ? text.substr(nAt + 1) : text.substr(0, text.find(u'\\')));
    } catch (const std::bad_alloc&) {
        return {};
    }
}

bool SSPIStaticToken::RenegotiateImpl() {
    try {
        Renegotiation renegotiation(m_pHandler);
        {
            const CSmartReadLocker locker(m_lock);
            renegotiation.AcquireUserCredentials(&m_handle);
        }
        const StaticTokenPtr pFresh = renegotiation.Run();
        const auto pSSPIToken = CountedCast<SSPIStaticToken>(pFresh);
        S_ASSERT(pSSPIToken);
        if (!pSSPIToken) {
            throw SSOException(SSO_ERROR);
        }
        if (!IsSameUser(*pSSPIToken)) {
            S_TRACE("ssoplugin: SSPIStaticToken::RenegotiateImpl() -- The fresh context is not the same user's.");
            throw SSOException(SSO_ERROR);
        }
        TakeOver(*pSSPIToken);
        return true;
    } catch (...) {
        // No host reverts the thread that renews: left as it is, it could become nobody's any more, and renew nothing.
        static_cast<void>(Platform::Tokens().RevertToSelf());
        throw;
    }
}

bool SSPIStaticToken::IsSameUser(SSPIStaticToken& io_other) {
    const CSmartReadLocker otherLocker(io_other.m_lock);  // nobody else knows it
    const CSmartReadLocker locker(m_lock);
    const UserName old(&m_handle);
    const UserName fresh(&io_other.m_handle);
    return !old.Text().empty() && old.Text() == fresh.Text();
}

void SSPIStaticToken::TakeOver(SSPIStaticToken& io_other) {
    const CSmartWriteLocker otherLocker(io_other.m_lock);  // nobody else knows it
    const CSmartWriteLocker locker(m_lock);
    if (Platform::Sspi().DeleteSecurityContext(&m_handle) != SEC_E_OK) {
        S_TRACE("ssoplugin: SSPISession::RenegotiateImpl() -- Could not delete context handle.");
    }
    m_handle = io_other.m_handle;
    io_other.m_handle = {};
    const auto expiry = io_other.GetExpiry();
    const CS_Locker times(m_times);
    m_expiry = expiry;
}

}  // namespace morwen
