#include "handlers/kerberos/Renegotiation.h"

#include <new>

#include "errors/SSOException.h"
#include "handlers/ActingLevel.h"
#include "handlers/HandlerToken.h"
#include "handlers/SystemFailure.h"
#include "handlers/kerberos/ActingAsUser.h"
#include "handlers/kerberos/KerberosSSPICredentials.h"
#include "handlers/kerberos/SSPISession.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"
#include "params/SequenceOwner.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr uint32_t SSEC_STATUS_OK = SSO_OK;
constexpr int kMostRounds = 5;

SSOCredentialsPtr MakeCredentials(uint32_t i_nType) {
    try {
        return MakeCounted<KerberosSSPICredentials>(SWCharString(), SWCharString(), i_nType);
    } catch (const std::bad_alloc&) {
        throw SSOException(SSOException::OutOfMemory());
    }
}

constexpr RevertTexts kRevertTexts = {
    "ssoplugin: SSPIStaticToken::RenegotiateImpl() revert failed -- revert using RevertToSelf(). Error %d", "false",
    "SSPIStaticToken::RenegotiateImpl() failed to revert to security context of process."};

// One step of one side. The handler throws when it fails, so this is where the trace learns which side it was.
template <class Step>
uint32_t RunStep(const char* i_pszFailed, Step i_step) {
    try {
        const uint32_t nStatus = i_step();
        if (nStatus >= SSO_ERROR) {
            throw SSOException(SSO_ERROR);
        }
        return nStatus;
    } catch (const SSOException&) {
        S_TRACE(i_pszFailed);
        throw;
    }
}

}  // namespace

Renegotiation::Renegotiation(const SSOHandlerPtr& i_pHandler)
    : m_pHandler(CountedCast<KerberosSSPIHandler>(i_pHandler)) {
    const auto& pSSPIHandler = m_pHandler;
    S_ASSERT(pSSPIHandler);
    if (!pSSPIHandler) {
        throw SSOException(SSO_ERROR);
    }
    const SWCharString ssSPN = m_pHandler->GetSPN();
    S_ASSERT(!ssSPN.isEmpty());
    m_ssSPN = ssSPN;
    m_pServerCreds = MakeCredentials(SSOHandler::kInbound);
}

void Renegotiation::AcquireUserCredentials(CtxtHandle* i_pContext) {
    ActingAsUser user(i_pContext, kRevertTexts);
    // Otherwise what is acquired would be the service's.
    if (const SECURITY_STATUS nStatus = user.Begin(); nStatus != SEC_E_OK || !IsThreadActing()) {
        S_TRACE("ssoplugin: SSPIStaticToken::RenegotiateImpl() -- Could not impersonate.");
        ThrowSystemFailure(nStatus, kMsgImpersonation);
    }
    m_pUserCreds = MakeCredentials(SSOHandler::kOutbound);
    if (!user.End()) {
        throw SSOException(SSO_ERROR, kMsgImpersonation);
    }
}

StaticTokenPtr Renegotiation::Run() {
    const SSOCredentialsPtr& pUserCreds = m_pUserCreds;
    const SSOCredentialsPtr& pServerCreds = m_pServerCreds;
    S_ASSERT(pUserCreds && pServerCreds);
    if (!pUserCreds || !pServerCreds) {
        throw SSOException(SSO_ERROR);
    }
    Parameters parameters;
    parameters.SetParameter(u"SI_SERVER_SSPI_SPN", m_ssSPN);
    // Both sides are this service, and know its channel.
    if (const SWCharString ssChannel = m_pHandler->GetChannelRule().Text(); !ssChannel.isEmpty()) {
        parameters.SetParameter(u"SSPI_CHANNEL_BINDINGS", ssChannel);
    }
    ParasSeq* pChain = nullptr;
    parameters.ToParasSeq(&pChain);
    const SequenceOwner chain(pChain);
    const SSOSessionPtr pClientSession = m_pHandler->CreateSession(chain.get());
    const SSOSessionPtr pServerSession = m_pHandler->CreateSession(nullptr);
    S_ASSERT_TEXT(pClientSession && pServerSession, "pServerSession && pServerSession");
    if (!pClientSession || !pServerSession) {
        throw SSOException(SSO_ERROR);
    }

    uint32_t statClient = SSO_CONTINUE;
    uint32_t statServer = SSO_CONTINUE;
    HandlerToken fromServer(*m_pHandler);
    for (int nRound = 1; statClient == SSO_CONTINUE || statServer == SSO_CONTINUE; ++nRound) {
        if (nRound > kMostRounds) {
            S_FAIL("ssoplugin: SSPIStaticToken::RenegotiateImpl() -- Stuck in loop, aborting!");
            throw SSOException(SSO_ERROR);
        }
        HandlerToken fromClient(*m_pHandler);
        if (statClient == SSO_CONTINUE) {  // a side that is complete is asked no more
            statClient = RunStep(
                "ssoplugin: SSPIStaticToken::RenegotiateImpl() -- Renegotiating security context failed when acting as "
                "the client.",
                [&] {
                    return m_pHandler->InitializeContext(pUserCreds, pClientSession, fromServer.Input(),
                                                         fromServer.m_nLength, &fromClient.m_pvToken,
                                                         &fromClient.m_nLength);
                });
        }
        fromServer.Reset();
        if (statServer == SSO_CONTINUE) {
            statServer = RunStep(
                "ssoplugin: SSPIStaticToken::RenegotiateImpl() -- Renegotiating security context failed when acting as "
                "the server.",
                [&] {
                    Parameters none;
                    return m_pHandler->AcceptContext(pServerCreds, pServerSession, fromClient.Input(),
                                                     fromClient.m_nLength, &fromServer.m_pvToken, &fromServer.m_nLength,
                                                     false, none);
                });
            if (statServer == SSO_ACCEPTED) {
                statServer = SSEC_STATUS_OK;
            }
        }
    }
    S_ASSERT(statClient == SSEC_STATUS_OK);
    S_ASSERT(statServer == SSEC_STATUS_OK);
    return pServerSession->GetStaticToken();
}

}  // namespace morwen
