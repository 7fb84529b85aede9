#include "handlers/kerberos/KerberosSSPIHandler.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "errors/SSOException.h"
#include "handlers/SystemErrorText.h"
#include "handlers/SystemFailure.h"
#include "handlers/kerberos/KerberosSSPICredentials.h"
#include "handlers/kerberos/LogonInformation.h"
#include "handlers/kerberos/SSPISession.h"
#include "handlers/kerberos/TokenBuffers.h"
#include "harrow/log/STrace.h"
#include "platform/OsText.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

// Credentials and session as the classes of this handler; the caller holds them. Throws SSOException with one of the
// two texts.
struct LoginObjects {
    LoginObjects(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                 const char* i_pszWrongCredentials, const char* i_pszWrongSession)
        : m_pCredentials(dynamic_cast<KerberosSSPICredentials*>(i_pCredentials.get())),
          m_pSession(dynamic_cast<SSPISession*>(i_pSession.get())) {
        if (m_pCredentials == nullptr) {
            S_FAIL(i_pszWrongCredentials);
            throw SSOException(SSO_ERROR);
        }
        if (m_pSession == nullptr) {
            S_FAIL(i_pszWrongSession);
            throw SSOException(SSO_ERROR);
        }
    }

    KerberosSSPICredentials* m_pCredentials;
    SSPISession* m_pSession;
};

void RequireInput(const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, const char* i_pszNull, const char* i_pszEmpty) {
    S_ASSERT_MSG(i_pvBuffer, i_pszNull);
    S_ASSERT_MSG(i_nBufferSize, i_pszEmpty);
    // What does not fit the package's 32-bit length must not be cut to something that does.
    if (i_pvBuffer == nullptr || i_nBufferSize == 0 || i_nBufferSize > std::numeric_limits<uint32_t>::max()) {
        SetReason(i_pvBuffer == nullptr || i_nBufferSize == 0 ? "The other side's token is empty."
                                                              : "The other side's token is of 4 GiB or more.");
        throw SSOException(SSO_ERROR);
    }
}

// A setting, when it is there.
template <class Value>
bool ReadSetting(const Parameters& i_parameters, const char16_t* i_pszKey, Value& o_value, const char* i_pszMismatch) {
    try {
        return i_parameters.GetParameter(i_pszKey, o_value);
    } catch (const SSOException&) {
        S_FAIL(i_pszMismatch);
        throw;
    }
}

[[noreturn]] void ThrowNoPackage() {
    throw SSOException(SSO_ERROR, kMsgNoPackage, {u"Kerberos/SSPI"});
}

}  // namespace

KerberosSSPIHandler::KerberosSSPIHandler() {
    m_requiredLoginParameters.SetParameter(u"SI_SERVER_SSPI_SPN", SWCharString());
    OsText package(u"Kerberos"_ss);
    PSecPkgInfoW pPackageInfo = nullptr;
    if (const SECURITY_STATUS nStatus = Platform::Sspi().QuerySecurityPackageInfoW(package.get(), &pPackageInfo);
        nStatus != SEC_E_OK) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::KerberosSSPIHandler() -- QuerySecurityPackageInfo() failed!");
        if (nStatus == SEC_E_INSUFFICIENT_MEMORY) {
            throw SSOException(SSOException::OutOfMemory());
        }
        NoteReason(nStatus);
        ThrowNoPackage();
    }
    S_ASSERT(pPackageInfo);
    if (pPackageInfo == nullptr) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::KerberosSSPIHandler() -- QuerySecurityPackageInfo() returned NULL!");
        ThrowNoPackage();
    }
    m_nMaxTokenSize = pPackageInfo->cbMaxToken;
    const SECURITY_STATUS statFree = Platform::Sspi().FreeContextBuffer(pPackageInfo);
    S_ASSERT(statFree == SEC_E_OK);
}

KerberosSSPIHandler::~KerberosSSPIHandler() {
    Platform::Sspi().ReleaseHeld();
}

void KerberosSSPIHandler::InitHandler(const Parameters& i_globalParameters) {
    if (!i_globalParameters.CheckParameters(m_requiredGlobalParameters)) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::InitHandler() -- Missing global parameters.");
        ThrowNoPackage();
    }
    int64_t lExpiryTime = 0;
    bool bCacheContexts = true;
    bool bAllowRenewals = true;
    bool bRequireInformation = false;
    const bool bExpiryPresent =
        ReadSetting(i_globalParameters, u"SSPI_CTXT_CACHE_EXPIRY", lExpiryTime,
                    "ssoplugin: KerberosSSPIHandler::InitHandler() -- Type mismatch getting the cache expiry time.");
    if (bExpiryPresent && lExpiryTime >= INT64_MAX / 1000) {
        S_ASSERT(lExpiryTime < (INT64_MAX / 1000));
        lExpiryTime = INT64_MAX;
    }
    const bool bCachePresent =
        ReadSetting(i_globalParameters, u"SI_CACHE_SECCONTEXT", bCacheContexts,
                    "ssoplugin: KerberosSSPIHandler::InitHandler() -- Type mismatch getting the cache expiry flag.");
    const bool bRenewalsPresent =
        ReadSetting(i_globalParameters, u"CONTEXT_RENEWALS_ALLOWED", bAllowRenewals,
                    "ssoplugin: KerberosSSPIHandler::InitHandler() -- Type mismatch getting the context renewal flag.");
    const bool bRequirePresent = ReadSetting(
        i_globalParameters, u"SSPI_REQUIRE_LOGON_INFO", bRequireInformation,
        "ssoplugin: KerberosSSPIHandler::InitHandler() -- Type mismatch getting the logon information flag.");
    ChannelRule channelRule(i_globalParameters, GetChannelRule());
    Parameters globalParameters = i_globalParameters;  // copied before the first change, because a copy can fail

    const CSmartWriteLocker locker(m_lock);
    if (bExpiryPresent) {
        // Computed unsigned, so that the largest value wraps to -1000 ms: a context that is always too old.
        m_cacheExpiry = STimeSpan(static_cast<int64_t>(static_cast<uint64_t>(lExpiryTime) * 1000U));
        S_TRACE("ssoplugin: KerberosSSPIHandler::InitHandler() -- Setting cache timeout to %1", lExpiryTime);
    }
    if (bCachePresent) {
        m_bCacheContexts = bCacheContexts;
        S_TRACE(bCacheContexts ? "ssoplugin: KerberosSSPIHandler::InitHandler() -- Turning on caching of contexts."
                               : "ssoplugin: KerberosSSPIHandler::InitHandler() -- Turning off caching of contexts.");
    }
    if (bRenewalsPresent) {
        m_bRenewalsAllowed = bAllowRenewals;
        S_TRACE(
            bAllowRenewals
                ? "ssoplugin: KerberosSSPIHandler::InitHandler() -- Allowing renewals of cached security contexts."
                : "ssoplugin: KerberosSSPIHandler::InitHandler() -- Disabling renewals of cached security contexts.");
    }
    if (bRequirePresent) {
        m_bRequireLogonInformation = bRequireInformation;
        S_TRACE(bRequireInformation
                    ? "ssoplugin: KerberosSSPIHandler::InitHandler() -- Requiring logon information in tickets."
                    : "ssoplugin: KerberosSSPIHandler::InitHandler() -- Requiring no logon information in tickets.");
    }
    m_channelRule = std::move(channelRule);
    m_globalParameters = std::move(globalParameters);
}

void KerberosSSPIHandler::Reserved(void*) {}

uint32_t KerberosSSPIHandler::InitializeContext(const SSOCredentialsPtr& i_pCredentials,
                                                const SSOSessionPtr& i_pSession, const uint8_t* i_pvBuffer,
                                                uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                                                uint64_t* o_pnBufferLength) {
    *o_ppvBuffer = nullptr;
    *o_pnBufferLength = 0;
    const LoginObjects login(
        i_pCredentials, i_pSession,
        "ssoplugin: KerberosSSPIHandler::InitializeContext() -- Wrong type of SSOCredentialsPtr passed in.",
        "ssoplugin: KerberosSSPIHandler::InitializeContext() -- Wrong type of SSOSessionPtr passed in.");
    SSPISession& session = *login.m_pSession;
    S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Pass %1", uint32_t{session.GetPassCount()});
    const bool bFirstPass = !session.HoldsContext();
    session.CountPass();

    SWCharString ssSPN;
    if (!session.GetParameters().GetParameter(u"SI_SERVER_SSPI_SPN"_ss, ssSPN)) {
        S_REASON("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Missing SPN!");
        throw SSOException(SSO_ERROR, kMsgServerPrincipal);
    }
    OsText spn(ssSPN);

    *o_ppvBuffer = AllocateOutput("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Out of memory");
    OutputBuffer output(*o_ppvBuffer, m_nMaxTokenSize);
    if (!bFirstPass) {
        RequireInput(i_pvBuffer, i_nBufferSize,
                     "ssoplugin: KerberosSSPIHandler::InitializeContext() -- NULL input buffer on second pass.",
                     "ssoplugin: KerberosSSPIHandler::InitializeContext() -- 0-length input buffer on second pass.");
    }
    InitiatingNegotiation* const pNegotiation = session.Initiating();
    std::span<const uint8_t> token;
    if (!bFirstPass) {
        token = {i_pvBuffer, static_cast<size_t>(i_nBufferSize)};
        token = pNegotiation != nullptr ? pNegotiation->Read(token) : token;
    }
    InputBuffers input(token, session.ChannelRecord());
    ULONG nAttributes = 0;
    TimeStamp tsExpiry{};
    const SECURITY_STATUS nStatus = Platform::Sspi().InitializeSecurityContextW(
        login.m_pCredentials->GetHandle(), bFirstPass ? nullptr : session.GetContext(), spn.get(),
        ISC_REQ_DELEGATE | ISC_REQ_MUTUAL_AUTH | (pNegotiation != nullptr ? ISC_REQ_INTEGRITY : 0U), 0,
        SECURITY_NATIVE_DREP, input.get(), 0, session.GetContext(), output.get(), &nAttributes, &tsExpiry);
    *o_pnBufferLength = output.Written();
    if (nStatus >= 0) {  // a call that fails may have left anything in the buffer
        m_tokenBlocks.SetWritten(*o_ppvBuffer, *o_pnBufferLength);
    }
    if (pNegotiation != nullptr && (nStatus == SEC_E_OK || nStatus == SEC_I_CONTINUE_NEEDED)) {
        const std::span<const uint8_t> own(*o_ppvBuffer, static_cast<size_t>(*o_pnBufferLength));
        Replace(pNegotiation->Answer(own, nStatus == SEC_E_OK, session.GetContext()), o_ppvBuffer, o_pnBufferLength);
    }
    switch (nStatus) {
        case SEC_E_OK:
            session.SetEstablished();
            return SSO_OK;
        case SEC_I_CONTINUE_NEEDED:
            return SSO_CONTINUE;
        case SEC_E_LOGON_DENIED:
            NoteReason(nStatus);
            S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Logon denied.");
            // Who denied it, and why.
            S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- %1", GetErrorText(nStatus));
            throw SSOException(SSO_DENIED, kMsgLogonDeniedClient);
        case SEC_E_WRONG_PRINCIPAL:
            NoteReason(nStatus);
            S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Mutual authentication failed.");
            S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- %1", GetErrorText(nStatus));
            throw SSOException(SSO_ERROR, kMsgServerPrincipal);
        default:
            NoteReason(nStatus);
            S_TRACE("ssoplugin: KerberosSSPIHandler::InitializeContext() -- Failure in InitializeSecurityContext(). %1",
                    GetErrorText(nStatus));
            ThrowSystemFailure(nStatus, kMsgGeneral);
    }
}

uint32_t KerberosSSPIHandler::AcceptContext(const SSOCredentialsPtr& i_pCredentials, const SSOSessionPtr& i_pSession,
                                            const uint8_t* i_pvBuffer, uint64_t i_nBufferSize, uint8_t** o_ppvBuffer,
                                            uint64_t* o_pnBufferLength, bool i_bWantLogonInformation,
                                            Parameters& o_logonInformation) {
    *o_ppvBuffer = nullptr;
    *o_pnBufferLength = 0;
    const LoginObjects login(
        i_pCredentials, i_pSession,
        "ssoplugin: KerberosSSPIHandler::AcceptContext() -- Wrong type of SSOCredentialsPtr passed in.",
        "ssoplugin: KerberosSSPIHandler::AcceptContext() -- Wrong type of SSOSessionPtr passed in.");
    SSPISession& session = *login.m_pSession;
    const bool bFirstPass = session.GetPassCount() == 0;
    session.CountPass();

    if (!bFirstPass && i_pvBuffer == nullptr && i_nBufferSize == 0) {
        // The client has nothing more to say. That ends a handshake whose context is complete; it must not end one
        // whose earlier passes failed or still wait for the client, or nobody's logon would be accepted.
        if (!session.IsEstablished()) {
            S_REASON("ssoplugin: KerberosSSPIHandler::AcceptContext() -- The context is not complete.");
            throw SSOException(SSO_ERROR);
        }
        if (i_bWantLogonInformation) {
            GetLogonInformation(i_pSession, o_logonInformation);
        }
        return SSO_ACCEPTED;
    }
    RequireInput(i_pvBuffer, i_nBufferSize, "ssoplugin: KerberosSSPIHandler::AcceptContext() -- NULL input buffer.",
                 "ssoplugin: KerberosSSPIHandler::AcceptContext() -- 0-length input buffer..");
    AcceptingNegotiation& negotiation = session.Accepting();
    const auto token = negotiation.Read({i_pvBuffer, static_cast<size_t>(i_nBufferSize)});
    const ChannelRule channel = GetChannelRule();
    InputBuffers input(token, channel.Record());
    *o_ppvBuffer = AllocateOutput("ssoplugin: KerberosSSPIHandler::AcceptContext() -- Out of memory");
    OutputBuffer output(*o_ppvBuffer, m_nMaxTokenSize);
    MechanismStep step{.m_pContext = session.GetContext()};
    const auto answer = [&] {
        Replace(negotiation.Answer(step), o_ppvBuffer, o_pnBufferLength);
        return negotiation.IsComplete();
    };
    if (token.empty()) {  // nothing for the package: the client proposes, or proves what it has proposed
        step.m_bDone = session.HoldsContext();
        if (answer()) {
            session.SetEstablished();
        }
        return SSO_CONTINUE;
    }
    // The first token of a negotiation may hold none for the package.
    const bool bNoContext = bFirstPass || (negotiation.IsUsed() && !session.HoldsContext());
    ULONG nAttributes = 0;
    TimeStamp tsExpiry{};
    const SECURITY_STATUS nStatus = Platform::Sspi().AcceptSecurityContext(
        login.m_pCredentials->GetHandle(), bNoContext ? nullptr : session.GetContext(), input.get(),
        ASC_REQ_MUTUAL_AUTH | negotiation.Requirements() | channel.Requirements(), SECURITY_NATIVE_DREP,
        session.GetContext(), output.get(), &nAttributes, &tsExpiry);
    *o_pnBufferLength = output.Written();
    if (nStatus >= 0) {  // a call that fails may have left anything in the buffer
        m_tokenBlocks.SetWritten(*o_ppvBuffer, *o_pnBufferLength);
    }
    step.m_token = {*o_ppvBuffer, static_cast<size_t>(*o_pnBufferLength)};
    step.m_bIntegrity = (nAttributes & ASC_RET_INTEGRITY) != 0;
    switch (nStatus) {
        case SEC_I_CONTINUE_NEEDED:
            if (negotiation.IsUsed()) {
                answer();
            }
            return SSO_CONTINUE;
        case SEC_E_INSUFFICIENT_MEMORY:
            S_FAIL("ssoplugin: KerberosSSPIHandler::AcceptContext() -- Out of memory!");
            throw SSOException(SSOException::OutOfMemory());
        case SEC_E_LOGON_DENIED:
            NoteReason(nStatus);
            S_TRACE("ssoplugin: KerberosSSPIHandler::AcceptContext() -- Logon denied.");
            S_TRACE("ssoplugin: KerberosSSPIHandler::AcceptContext() -- %1", GetErrorText(nStatus));
            throw SSOException(SSO_DENIED, kMsgCredentials);
        case SEC_E_OK:
            CheckLogonInformation(i_pSession);
            step.m_bDone = true;
            if (negotiation.IsUsed() && !answer()) {
                return SSO_CONTINUE;  // the client has still to prove what it has proposed
            }
            session.SetEstablished();
            if (i_bWantLogonInformation) {
                GetLogonInformation(i_pSession, o_logonInformation);
            }
            return *o_ppvBuffer != nullptr || *o_pnBufferLength != 0 ? SSO_CONTINUE : SSO_ACCEPTED;
        case SEC_I_COMPLETE_NEEDED:
        case SEC_I_COMPLETE_AND_CONTINUE:
            if (negotiation.IsUsed()) {  // its answer, and the client's proof, would be left out
                S_REASON("ssoplugin: KerberosSSPIHandler::AcceptContext() -- The package wants what SPNEGO has not.");
                throw SSOException(SSO_ERROR);
            }
            CheckLogonInformation(i_pSession);
            session.SetEstablished();
            return SSO_OK;
        default:
            NoteReason(nStatus);
            S_TRACE("ssoplugin: KerberosSSPIHandler::AcceptContext() -- Failure in AcceptSecurityContext(). %1",
                    GetErrorText(nStatus));
            throw SSOException(SSO_ERROR);
    }
}

SSOSessionPtr KerberosSSPIHandler::CreateSession(const ParasSeq* i_pLoginParameters) {
    S_TRACE("ssoplugin: KerberosSSPIHandler::CreateSession() -- Creating a new session for Kerberos SSPI.");
    try {
        return MakeCounted<SSPISession>(i_pLoginParameters, SSOHandlerPtr(this));
    } catch (const std::bad_alloc&) {
        S_FAIL("KerberosSSPIHandler::CreateSession() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    } catch (const SSOException&) {  // of wrong parameters
        throw;
    } catch (...) {
        S_FAIL("KerberosSSPIHandler::CreateSession() -- Creation failed.");
        throw SSOException(SSO_ERROR);
    }
}

SSOCredentialsPtr KerberosSSPIHandler::CreateCredentials(const SWCharString& i_ssUser, const SWCharString& i_ssPassword,
                                                         uint32_t i_nCredentialType) {
    S_TRACE("ssoplugin: KerberosSSPIHandler::CreateCredentials() -- Creating new credentials object.");
    try {
        return MakeCounted<KerberosSSPICredentials>(i_ssUser, i_ssPassword, i_nCredentialType);
    } catch (const SSOException&) {
        throw;
    } catch (const std::bad_alloc&) {
        S_FAIL("KerberosSSPIHandler::CreateCredentials() -- Out of memory.");
        throw SSOException(SSOException::OutOfMemory());
    } catch (...) {
        S_FAIL("KerberosSSPIHandler::CreateCredentials() -- Creation failed.");
        throw SSOException(SSO_ERROR);
    }
}

void KerberosSSPIHandler::CheckLogonInformation(const SSOSessionPtr& i_pSession) const {
    {
        const CSmartReadLocker locker(m_lock);
        if (!m_bRequireLogonInformation) {
            return;
        }
    }
    if (!IsKnownToDirectory(i_pSession)) {
        S_REASON(
            "ssoplugin: KerberosSSPIHandler::AcceptContext() -- The ticket brings no logon information of a directory, "
            "which is required.");
        throw SSOException(SSO_DENIED, kMsgCredentials);
    }
}

void KerberosSSPIHandler::Replace(const std::vector<uint8_t>& i_token, uint8_t** io_ppvBuffer,
                                  uint64_t* io_pnBufferLength) {
    if (i_token.size() > m_nMaxTokenSize) {
        uint8_t* const pvLarger = AllocateBuffer(i_token.size());
        FreeBuffer(std::exchange(*io_ppvBuffer, pvLarger));
    }
    std::copy(i_token.begin(), i_token.end(), *io_ppvBuffer);
    // What is not written over must still be cleared.
    m_tokenBlocks.SetWritten(*io_ppvBuffer, std::max<uint64_t>(*io_pnBufferLength, i_token.size()));
    *io_pnBufferLength = i_token.size();
}

uint8_t* KerberosSSPIHandler::AllocateOutput(const char* i_pszOutOfMemory) {
    try {
        return AllocateBuffer(m_nMaxTokenSize);
    } catch (const SSOException&) {
        S_FAIL(i_pszOutOfMemory);
        throw;
    }
}

uint8_t* KerberosSSPIHandler::AllocateBuffer(uint64_t i_nSize) {
    auto* pvBuff = m_tokenBlocks.Allocate(i_nSize);
    S_ASSERT_MSG(pvBuff, "KerberosSSPIHandler::AllocateBuffer() -- Out of memory.");
    if (pvBuff == nullptr) {
        throw SSOException(SSOException::OutOfMemory());
    }
    return pvBuff;
}

void KerberosSSPIHandler::FreeBuffer(uint8_t* i_pvBuffer) {
    if (i_pvBuffer == nullptr) {
        S_TRACE("KerberosSSPIHandler::FreeBuffer() -- input buffer is NULL");
        return;
    }
    m_tokenBlocks.Free(i_pvBuffer);
}

ChannelRule KerberosSSPIHandler::GetChannelRule() const {
    const CSmartReadLocker locker(m_lock);
    return m_channelRule;
}

SWCharString KerberosSSPIHandler::GetSPN() const {
    const CSmartReadLocker locker(m_lock);
    SWCharString ssSPN;
    if (!m_globalParameters.GetParameter(u"SI_SERVER_SSPI_SPN"_ss, ssSPN)) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetSPN() -- Could not determine spn!");
        throw SSOException(SSO_ERROR);
    }
    return ssSPN;
}

}  // namespace morwen
