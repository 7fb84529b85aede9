#include "platform/linux/seam/LinuxSspi.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/contexts/SystemProfile.h"
#include "platform/linux/identity/ThreadIdentity.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/logon/Acceptor.h"
#include "platform/linux/logon/Initiator.h"
#include "platform/linux/logon/LocalAccount.h"
#include "platform/linux/seam/SecBuffers.h"
#include "platform/linux/seam/TimeStamps.h"
#include "platform/linux/seam/TokenTable.h"
#include "platform/linux/wire/GssToken.h"

namespace morwen {

namespace {

constexpr std::u16string_view kPackage = u"Kerberos";
constexpr std::u16string_view kComment = u"Kerberos V5 through libkrb5";

// What the package information says that the package can: connections, mutual authentication, delegation, tokens that
// GSS-API understands, no protection of messages.
constexpr uint32_t kTokenOnly = 0x4;
constexpr uint32_t kConnection = 0x10;
constexpr uint32_t kGssCompatible = 0x1000;
constexpr uint32_t kMutualAuth = 0x10000;
constexpr uint32_t kDelegation = 0x20000;
constexpr uint16_t kPackageVersion = 1;
constexpr uint16_t kRpcIdentifier = 16;

// One block with its texts, allocated by malloc.
struct PackageInfo {
    SecPkgInfoW m_info{};
    char16_t m_szName[kPackage.size() + 1]{};
    char16_t m_szComment[kComment.size() + 1]{};
};

// Nothing is thrown across the seam.
template <class Work>
SECURITY_STATUS Guarded(const char* i_pszCall, Work i_work) noexcept {
    SECURITY_STATUS nStatus = SEC_E_INTERNAL_ERROR;
    BeginCall();
    try {
        nStatus = i_work();
        if (nStatus < 0 || !IsThreadStuck()) {
            return nStatus;
        }
        nStatus = FailWith(SEC_E_NO_IMPERSONATION, "the thread could not be made the user again that it acts as");
    } catch (const SspiFailure& failure) {
        nStatus = HasMemoryRunOut() ? FailWith(SEC_E_INSUFFICIENT_MEMORY, {}) : failure.Status();
    } catch (const std::bad_alloc&) {
        nStatus = FailWith(SEC_E_INSUFFICIENT_MEMORY, {});
    } catch (...) {
        FailWith(nStatus, "an unexpected exception");
    }
    S_TRACE("ssoplugin: LinuxSspi::%1() -- Failed with %2: %3", i_pszCall, nStatus, std::string(FailureText(nStatus)));
    return nStatus;
}

// The one that was left beside the credentials, when there are some.
Krb5ContextLease TakeContext(const LinuxCredential* i_pCredential = nullptr) {
    Krb5ContextLease lease = i_pCredential != nullptr ? LendKrb5Context(i_pCredential->m_context) : LendKrb5Context();
    // Without a context the library has no words for its own codes.
    if (!lease && lease.Code() == KRB5_CONFIG_BADFORMAT) {
        Fail(StatusFromKrb5(KRB5_CONFIG_BADFORMAT), "a line of the Kerberos configuration cannot be read (" +
                                                        ConfigurationFiles() +
                                                        ", or a file that it includes); morwen-doctor names the line");
    }
    if (!lease) {
        FailKrb5(nullptr, lease.Code(), "starting the Kerberos library");
    }
    return lease;
}

// For work that needs neither files nor the configuration: a thread that acts as a user need not become the service.
template <class Work>
void WithAnyContext(const LinuxCredential& i_credential, Work i_work) {
    if (!IsThreadStuck() && ImpersonatedIdentity() != nullptr) {
        if (const auto lent = Krb5LentContext::ForReleasing(); lent.get() != nullptr) {
            krb5_clear_error_message(lent.get());
            i_work(lent.get());
            return;
        }
    }
    i_work(TakeContext(&i_credential).get());
}

char16_t LowerCase(char16_t i_c) {
    return i_c >= u'A' && i_c <= u'Z' ? static_cast<char16_t>(i_c + 32) : i_c;
}

void CheckPackage(const SEC_WCHAR* i_pszPackage) {
    const std::u16string_view name = i_pszPackage != nullptr ? std::u16string_view(i_pszPackage) : u"";
    if (name != kPackage &&
        !std::equal(name.begin(), name.end(), kPackage.begin(), kPackage.end(),
                    [](char16_t i_left, char16_t i_right) { return LowerCase(i_left) == LowerCase(i_right); })) {
        Fail(SEC_E_SECPKG_NOT_FOUND, "Kerberos is the only security package here");
    }
}

// Goes back through FreeContextBuffer. Throws std::bad_alloc.
SEC_WCHAR* CopyForHost(const Harrowlib201::SWCharString& i_ssText) {
    auto* const pszCopy = static_cast<SEC_WCHAR*>(std::calloc(i_ssText.length() + 1, sizeof(SEC_WCHAR)));
    if (pszCopy == nullptr) {
        throw std::bad_alloc();
    }
    std::copy_n(i_ssText.c_str(), i_ssText.length(), pszCopy);
    return pszCopy;
}

void RequireOutput(const void* i_pvOutput) {
    if (i_pvOutput == nullptr) {
        Fail(SEC_E_INVALID_HANDLE, "the call brings no place for its result");
    }
}

template <class T>
void Give(T* o_pResult, const T& i_result) {
    if (o_pResult != nullptr) {
        *o_pResult = i_result;
    }
}

SECURITY_STATUS Unsupported(const char* i_pszWhat) {
    Fail(SEC_E_UNSUPPORTED_FUNCTION, std::string(i_pszWhat) + " is not supported yet");
}

}  // namespace

SECURITY_STATUS LinuxSspi::QuerySecurityPackageInfoW(SEC_WCHAR* i_pszPackage, PSecPkgInfoW* o_ppInfo) noexcept {
    return Guarded("QuerySecurityPackageInfoW", [&] {
        RequireOutput(o_ppInfo);
        CheckPackage(i_pszPackage);
        static_cast<void>(TakeContext());  // there is no package without a library that starts
        void* const pvBlock = std::malloc(sizeof(PackageInfo));
        if (pvBlock == nullptr) {
            throw std::bad_alloc();
        }
        auto* const pPackage = new (pvBlock) PackageInfo;
        std::copy(kPackage.begin(), kPackage.end(), pPackage->m_szName);
        std::copy(kComment.begin(), kComment.end(), pPackage->m_szComment);
        pPackage->m_info = {kTokenOnly | kConnection | kGssCompatible | kMutualAuth | kDelegation,
                            kPackageVersion,
                            kRpcIdentifier,
                            kMostTokenBytes,
                            pPackage->m_szName,
                            pPackage->m_szComment};
        *o_ppInfo = &pPackage->m_info;
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::FreeContextBuffer(void* i_pvBuffer) noexcept {
    std::free(i_pvBuffer);
    return SEC_E_OK;
}

SECURITY_STATUS LinuxSspi::AcquireCredentialsHandleW(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR* i_pszPackage, ULONG i_nUse,
                                                     void* i_pvLogonId, void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey,
                                                     void* i_pvGetKeyArgument, PCredHandle o_pCredential,
                                                     PTimeStamp o_ptsExpiry) noexcept {
    return Guarded("AcquireCredentialsHandleW", [&] {
        RequireOutput(o_pCredential);
        CheckPackage(i_pszPackage);
        if (i_pszPrincipal != nullptr || i_pvLogonId != nullptr || i_pfnGetKey != nullptr ||
            i_pvGetKeyArgument != nullptr) {
            Unsupported("choosing credentials by principal, logon identifier or key function");
        }
        const auto* const pIdentity = static_cast<const SEC_WINNT_AUTH_IDENTITY_W*>(i_pvAuthData);
        auto pCredential = LinuxCredential::OfActingUser(i_nUse, pIdentity);
        if (pCredential == nullptr) {
            Krb5ContextLease lease = TakeContext();
            pCredential = LinuxCredential::Acquire(lease.get(), i_nUse, pIdentity);
            pCredential->m_context.Park(lease);
        }
        *o_pCredential = m_credentials.Add(pCredential);
        Give(o_ptsExpiry, LocalTimeStamp(kNever));
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::FreeCredentialsHandle(PCredHandle i_pCredential) noexcept {
    return m_credentials.Remove(i_pCredential) != nullptr
               ? SEC_E_OK
               : FailWith(SEC_E_INVALID_HANDLE, "there are no credentials with this handle");
}

SECURITY_STATUS LinuxSspi::InitializeSecurityContextW(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                                      SEC_WCHAR* i_pszTargetName, ULONG i_nRequirements, ULONG, ULONG,
                                                      PSecBufferDesc i_pInput, ULONG, PCtxtHandle o_pNewContext,
                                                      PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                                      PTimeStamp o_ptsExpiry) noexcept {
    return Guarded("InitializeSecurityContextW", [&] {
        const auto pCredential = Credential(i_pCredential);
        if (!pCredential->m_bInitiates) {
            Fail(SEC_E_NO_CREDENTIALS, "the credentials are for accepting logons only");
        }
        if (i_pContext != nullptr) {
            return FinishLogon(*pCredential, i_pContext, i_pInput, o_pNewContext, io_pOutput, o_pnAttributes,
                               o_ptsExpiry);
        }
        return StartLogon(*pCredential, i_pszTargetName, i_nRequirements, i_pInput, o_pNewContext, io_pOutput,
                          o_pnAttributes, o_ptsExpiry);
    });
}

SECURITY_STATUS LinuxSspi::AcceptSecurityContext(PCredHandle i_pCredential, PCtxtHandle i_pContext,
                                                 PSecBufferDesc i_pInput, ULONG i_nRequirements, ULONG,
                                                 PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                                 ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) noexcept {
    return Guarded("AcceptSecurityContext", [&] {
        const auto pCredential = Credential(i_pCredential);
        if (pCredential->m_pKeys == nullptr) {
            Fail(SEC_E_NO_CREDENTIALS, "the credentials are for initiating logons only");
        }
        if (i_pContext != nullptr) {
            Fail(SEC_E_INVALID_TOKEN, Context(i_pContext)->m_bAccepted
                                          ? "the logon is complete and expects no further token"
                                          : "the context is of a logon that this process has begun as the client");
        }
        return AcceptLogon(*pCredential, i_pInput, i_nRequirements, o_pNewContext, io_pOutput, o_pnAttributes,
                           o_ptsExpiry);
    });
}

SECURITY_STATUS LinuxSspi::QueryContextAttributesW(PCtxtHandle i_pContext, ULONG i_nAttribute,
                                                   void* o_pvBuffer) noexcept {
    return Guarded("QueryContextAttributesW", [&] {
        const auto pLogon = Context(i_pContext);
        RequireOutput(o_pvBuffer);
        if (i_nAttribute != SECPKG_ATTR_LIFESPAN && i_nAttribute != SECPKG_ATTR_NAMES) {
            Unsupported("any attribute but the lifespan and the names");
        }
        const Harrowlib201::CS_Locker locker(pLogon->m_section);
        if (!pLogon->m_bEstablished) {
            Fail(SEC_E_INVALID_HANDLE, "the logon is not complete");
        }
        if (i_nAttribute == SECPKG_ATTR_NAMES) {
            if (!pLogon->m_bAccepted) {
                Unsupported("the names of a context that was not accepted");
            }
            const std::string name = PrincipalText(TakeContext().get(), pLogon->m_client.get());
            static_cast<SecPkgContext_NamesW*>(o_pvBuffer)->sUserName =
                CopyForHost(Harrowlib201::SWCharStringConv::FromUtf8(name));
            return SEC_E_OK;
        }
        *static_cast<SecPkgContext_Lifespan*>(o_pvBuffer) = {LocalTimeStamp(pLogon->m_nStart),
                                                             LocalTimeStamp(pLogon->m_nEnd)};
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::ImpersonateSecurityContext(PCtxtHandle i_pContext) noexcept {
    return Guarded("ImpersonateSecurityContext", [&] {
        const auto pIdentity = IdentityOf(*Context(i_pContext), Need::Account);
        const uid_t nUser = pIdentity->m_account->m_nUser;
        if (nUser == 0) {
            Fail(SEC_E_NO_IMPERSONATION, "the user maps to root, whom no logon may act as; see auth_to_local");
        }
        if (const int nError = ImpersonateIdentity(pIdentity); nError == ENOMEM) {
            throw std::bad_alloc();
        } else if (nError != 0) {
            Fail(SEC_E_NO_IMPERSONATION, "acting as the user with the number " + std::to_string(nUser) + ": " +
                                             std::generic_category().message(nError) +
                                             "; the service needs CAP_SETUID and CAP_SETGID");
        }
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::RevertSecurityContext(PCtxtHandle i_pContext) noexcept {
    return Guarded("RevertSecurityContext", [&] {
        static_cast<void>(Context(i_pContext));
        if (const int nError = RevertThread(); nError != 0) {
            Fail(SEC_E_NO_IMPERSONATION, "becoming the service again: " + std::generic_category().message(nError));
        }
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::DeleteSecurityContext(PCtxtHandle i_pContext) noexcept {
    return m_contexts.Remove(i_pContext) != nullptr
               ? SEC_E_OK
               : FailWith(SEC_E_INVALID_HANDLE, "there is no context with this handle");
}

SECURITY_STATUS LinuxSspi::MakeSignature(PCtxtHandle i_pContext, ULONG, PSecBufferDesc io_pMessage, ULONG) noexcept {
    return Guarded("MakeSignature", [&] {
        const auto pLogon = Context(i_pContext);
        OutputToken output(io_pMessage);
        const Harrowlib201::CS_Locker locker(pLogon->m_section);
        if (!pLogon->m_mic) {
            Unsupported("signing without a key for it");
        }
        const auto mic = pLogon->m_mic->Make(TakeContext().get(), InputData(io_pMessage));
        if (mic.empty()) {
            Unsupported("signing with this type of key");
        }
        output.Write(mic);
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::VerifySignature(PCtxtHandle i_pContext, PSecBufferDesc i_pMessage, ULONG,
                                           ULONG* o_pnQuality) noexcept {
    return Guarded("VerifySignature", [&] {
        const auto pLogon = Context(i_pContext);
        const Harrowlib201::CS_Locker locker(pLogon->m_section);
        if (!pLogon->m_mic) {
            Unsupported("checking signatures without a key for it");
        }
        if (!pLogon->m_mic->Check(TakeContext().get(), InputData(i_pMessage), InputToken(i_pMessage))) {
            Fail(SEC_E_MESSAGE_ALTERED, "the signature is not the other side's");
        }
        Give(o_pnQuality, ULONG{0});
        return SEC_E_OK;
    });
}

SECURITY_STATUS LinuxSspi::OpenContextToken(PCtxtHandle i_pContext, HANDLE* o_phToken) noexcept {
    return Guarded("OpenContextToken", [&] {
        RequireOutput(o_phToken);
        const HANDLE hToken = OpenToken(IdentityOf(*Context(i_pContext), Need::Sids));
        try {
            if (SidsOfToken(hToken) == nullptr) {
                Fail(SEC_E_INVALID_TOKEN,
                     "the logon information in the user's ticket, signed by the KDC, cannot be read");
            }
        } catch (...) {
            CloseToken(hToken);
            throw;
        }
        *o_phToken = hToken;
        return SEC_E_OK;
    });
}

void LinuxSspi::ReleaseHeld() noexcept {
    LinuxCredential::ReleaseHeld();
}

std::shared_ptr<const TokenIdentity> LinuxSspi::IdentityOf(SecurityContext& io_logon, Need i_eNeed) {
    const Harrowlib201::CS_Locker locker(io_logon.m_section);
    if (!io_logon.m_bAccepted || !io_logon.m_bEstablished) {
        Fail(SEC_E_INVALID_HANDLE, "the context is not that of a user who has logged on here");
    }
    auto& pIdentity = io_logon.m_pIdentity;
    const bool bInTicket = i_eNeed == Need::Sids && pIdentity->m_pPacLogonInfo != nullptr;
    if (!bInTicket && !pIdentity->m_account) {
        SECURITY_STATUS nStatus = SEC_E_INTERNAL_ERROR;
        auto account = LocalAccount(TakeContext().get(), io_logon.m_client.get(), io_logon.m_accountName, nStatus);
        if (!account && i_eNeed == Need::Sids) {
            Fail(nStatus, "the ticket brings no logon information, and " + std::string(FailureText(nStatus)));
        } else if (!account) {
            throw SspiFailure(nStatus);
        }
        auto pWithAccount = std::make_shared<TokenIdentity>(*pIdentity);
        pWithAccount->m_account = std::move(account);
        pIdentity = std::move(pWithAccount);
    }
    return pIdentity;
}

std::shared_ptr<LinuxCredential> LinuxSspi::Credential(PCredHandle i_pCredential) const {
    auto pCredential = m_credentials.Find(i_pCredential);
    if (pCredential == nullptr) {
        Fail(SEC_E_INVALID_HANDLE, "there are no credentials with this handle");
    }
    return pCredential;
}

std::shared_ptr<SecurityContext> LinuxSspi::Context(PCtxtHandle i_pContext) const {
    auto pLogon = m_contexts.Find(i_pContext);
    if (pLogon == nullptr) {
        Fail(SEC_E_INVALID_HANDLE, "there is no context with this handle");
    }
    return pLogon;
}

SECURITY_STATUS LinuxSspi::StartLogon(const LinuxCredential& i_credential, const SEC_WCHAR* i_pszTargetName,
                                      ULONG i_nRequirements, PSecBufferDesc i_pInput, PCtxtHandle o_pNewContext,
                                      PSecBufferDesc io_pOutput, ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) {
    OutputToken output(io_pOutput);
    RequireOutput(o_pNewContext);
    if (i_credential.m_pTickets == nullptr) {
        Fail(SEC_E_NO_CREDENTIALS,
             "the thread acts as a user who has delegated no tickets to this service, and whose own ticket may not be "
             "forwarded; is the account marked as sensitive or protected, or was the ticket not asked for as "
             "forwardable?");
    }
    if (i_pszTargetName == nullptr || *i_pszTargetName == u'\0') {
        Fail(SEC_E_TARGET_UNKNOWN, "the call names no service to log on to");
    }
    const Krb5ContextLease lease = TakeContext(&i_credential);
    std::vector<uint8_t> token;
    const auto pLogon =
        InitiateLogon(lease.get(), *i_credential.m_pTickets, Harrowlib201::SWCharStringConv::ToUtf8(i_pszTargetName),
                      {i_nRequirements, InputChannel(i_pInput)}, token);
    const Harrowlib201::CS_Locker locker(pLogon->m_section);
    output.Write(token);
    *o_pNewContext = m_contexts.Add(pLogon);
    Give(o_pnAttributes, pLogon->m_nAttributes);
    Give(o_ptsExpiry, LocalTimeStamp(pLogon->m_nEnd));
    return pLogon->m_bEstablished ? SEC_E_OK : SEC_I_CONTINUE_NEEDED;
}

SECURITY_STATUS LinuxSspi::FinishLogon(const LinuxCredential& i_credential, PCtxtHandle i_pContext,
                                       PSecBufferDesc i_pInput, PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                       ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) {
    const auto pLogon = Context(i_pContext);
    if (io_pOutput != nullptr) {
        OutputToken(io_pOutput).Write({});  // nothing more to send
    }
    WithAnyContext(i_credential,
                   [&](krb5_context i_context) { CheckAnswer(i_context, *pLogon, InputToken(i_pInput)); });
    const Harrowlib201::CS_Locker locker(pLogon->m_section);
    Give(o_pNewContext, *i_pContext);
    Give(o_pnAttributes, pLogon->m_nAttributes);
    Give(o_ptsExpiry, LocalTimeStamp(pLogon->m_nEnd));
    return SEC_E_OK;
}

SECURITY_STATUS LinuxSspi::AcceptLogon(const LinuxCredential& i_credential, PSecBufferDesc i_pInput,
                                       ULONG i_nRequirements, PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                                       ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) {
    OutputToken output(io_pOutput);
    RequireOutput(o_pNewContext);
    const auto input = InputToken(i_pInput);
    const Krb5ContextLease lease = TakeContext(&i_credential);
    std::vector<uint8_t> reply;
    const auto pLogon =
        AcceptToken(lease.get(), *i_credential.m_pKeys, input, {i_nRequirements, InputChannel(i_pInput)}, reply);
    const Harrowlib201::CS_Locker locker(pLogon->m_section);
    output.Write(reply);
    *o_pNewContext = m_contexts.Add(pLogon);
    Give(o_pnAttributes, pLogon->m_nAttributes);
    Give(o_ptsExpiry, LocalTimeStamp(pLogon->m_nEnd));
    return SEC_E_OK;
}

SspiCalls& TheLinuxSspi() {
    static Harrowlib201::NeverDestroyed<LinuxSspi> s_sspi;
    return *s_sspi;
}

}  // namespace morwen
