#include "handlers/kerberos/LogonInformation.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "errors/SSOException.h"
#include "handlers/SystemErrorText.h"
#include "handlers/SystemFailure.h"
#include "handlers/kerberos/ActingAsUser.h"
#include "handlers/kerberos/SSPISession.h"
#include "harrow/log/STrace.h"
#include "harrow/text/TextRoom.h"
#include "platform/Platform.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr DWORD SSPI_DEFAULT_USER_DATA_BUFFER_SIZE = 4096;

constexpr RevertTexts kRevertTexts = {nullptr, "RevertToSelf()", nullptr};

// The token of the user who logged on. Where the context itself can be asked, no identity changes; elsewhere the thread
// runs as the user until End, or until this object goes, and then as whom it did before.
class LogonToken {
public:
    explicit LogonToken(CtxtHandle* i_pContext) : m_user(i_pContext, kRevertTexts) {
        const SECURITY_STATUS nStatus = Platform::Sspi().OpenContextToken(i_pContext, &m_hUser);
        if (nStatus == SEC_E_UNSUPPORTED_FUNCTION) {
            OpenByImpersonating();
        } else if (nStatus != SEC_E_OK) {
            NoteReason(nStatus);
            static_cast<void>(End());  // the destructor does not run when the constructor throws
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- OpenContextToken() failed: %1",
                    GetErrorText(nStatus));
            ThrowSystemFailure(nStatus, kMsgImpersonation);
        }
        S_ASSERT_TEXT(m_hUser != nullptr, "hUser");
    }
    ~LogonToken() { static_cast<void>(End()); }
    LogonToken(const LogonToken&) = delete;
    LogonToken& operator=(const LogonToken&) = delete;

    HANDLE get() const noexcept { return m_hUser; }

    // False when the thread could not be made itself again.
    bool End() noexcept {
        bool bReverted = m_user.End();
        if (m_earlier) {
            bReverted = m_earlier->Resume() && bReverted;
            m_earlier.reset();
        }
        if (m_hUser != nullptr) {
            const BOOL bClosed = Platform::Tokens().CloseHandle(m_hUser);
            S_ASSERT_TEXT(bClosed, "CloseHandle(hUser)");
            m_hUser = nullptr;
        }
        return bReverted;
    }

private:
    void OpenByImpersonating() {
        m_earlier.emplace();
        if (const SECURITY_STATUS nStatus = m_user.Begin(); nStatus != SEC_E_OK) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Could not impersonate.");
            ThrowSystemFailure(nStatus, kMsgImpersonation);
        }
        if (Platform::Tokens().OpenThreadToken(Platform::Kernel().GetCurrentThread(), TOKEN_QUERY, TRUE, &m_hUser)) {
            return;
        }
        const auto nError = static_cast<SECURITY_STATUS>(Platform::Kernel().GetLastError());
        m_hUser = nullptr;
        NoteReason(nError);
        const bool bReverted = End();
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- OpenThreadToken() failed: %1",
                GetErrorText(nError));
        if (!bReverted) {
            throw SSOException(SSO_ERROR, kMsgImpersonation);
        }
        ThrowSystemFailure(nError, kMsgGeneral);
    }

    ActingAsUser m_user;
    std::optional<EarlierUser> m_earlier;  // where the thread has become somebody else
    HANDLE m_hUser = nullptr;
};

// Returns where the number's digits end.
char16_t* PutNumber(uint32_t i_nNumber, char16_t* o_pszText) {
    size_t nDigits = 1;
    for (uint64_t nPower = 10; i_nNumber >= nPower; nPower *= 10) {
        ++nDigits;
    }
    for (size_t i = nDigits; i-- > 0; i_nNumber /= 10) {
        o_pszText[i] = static_cast<char16_t>(u'0' + i_nNumber % 10);
    }
    return o_pszText + nDigits;
}

// Writes security identifiers one behind the other. A user's groups are mostly of one domain and differ in the last
// number alone: what comes before it is copied.
class SidTexts {
public:
    // Room for so many units; there will be more when they are needed. Throws std::bad_alloc.
    explicit SidTexts(size_t i_nRoom) : m_room(i_nRoom) {}

    size_t Length() const noexcept { return m_nLength; }
    std::u16string_view From(size_t i_nBegin) const noexcept { return {m_room.get() + i_nBegin, m_nLength - i_nBegin}; }
    // Then nothing is left here.
    SWCharString Take() noexcept { return m_room.Take(m_nLength); }

    // Two of them must be there at once, this one and the one before. Throws SSOException for what is no SID, and
    // std::bad_alloc.
    void Append(PSID i_pSid) {
        if (!m_tokens.IsValidSid(i_pSid)) {
            throw SSOException(SSO_ERROR);
        }
        const BYTE nSubAuthorities = *m_tokens.GetSidSubAuthorityCount(i_pSid);
        MakeRoom(kHeadLength + kNumberLength * size_t{nSubAuthorities});
        char16_t* const pszBegin = m_room.get() + m_nLength;
        if (IsOfSameDomain(i_pSid, nSubAuthorities)) {
            std::memcpy(pszBegin, m_room.get() + m_nBegin, m_nHeadLength * sizeof(char16_t));
        } else {
            m_nHeadLength = static_cast<size_t>(PutHead(i_pSid, nSubAuthorities, pszBegin) - pszBegin);
        }
        char16_t* pszEnd = pszBegin + m_nHeadLength;
        if (nSubAuthorities != 0) {
            pszEnd = PutNumber(*m_tokens.GetSidSubAuthority(i_pSid, nSubAuthorities - 1U), pszEnd);
        }
        m_nBegin = m_nLength;
        m_nLength = static_cast<size_t>(pszEnd - m_room.get());
        m_pBefore = i_pSid;
    }

    void AppendSeparator() {
        MakeRoom(1);
        m_room.get()[m_nLength++] = u';';
    }

private:
    static constexpr size_t kHeadLength = 28;
    static constexpr size_t kNumberLength = 12;

    void MakeRoom(size_t i_nUnits) {
        if (m_room.size() - m_nLength < i_nUnits) {
            m_room.Grow(2 * (m_nLength + i_nUnits), m_nLength);
        }
    }

    bool IsOfSameDomain(PSID i_pSid, BYTE i_nSubAuthorities) const noexcept {
        const size_t nHeadBytes = offsetof(SID, SubAuthority) + (i_nSubAuthorities - size_t{1}) * sizeof(DWORD);
        return m_pBefore != nullptr && i_nSubAuthorities != 0 && std::memcmp(m_pBefore, i_pSid, nHeadBytes) == 0;
    }

    // All but the last number.
    char16_t* PutHead(PSID i_pSid, BYTE i_nSubAuthorities, char16_t* o_pszText) const {
        constexpr size_t kUsualLength = 256;
        if (kHeadLength + kNumberLength * i_nSubAuthorities > kUsualLength) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::SIDToSString() -- Buffer too small.  Reallocating.");
        }
        *o_pszText++ = u'S';
        *o_pszText++ = u'-';
        o_pszText = PutNumber(static_cast<const SID*>(i_pSid)->Revision, o_pszText);
        *o_pszText++ = u'-';
        const BYTE* pAuthority = m_tokens.GetSidIdentifierAuthority(i_pSid)->Value;
        if (pAuthority[0] != 0 || pAuthority[1] != 0) {
            char szAuthority[2 + 12 + 1];
            static_cast<void>(std::snprintf(szAuthority, std::size(szAuthority),
                                            "0x%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx", pAuthority[0], pAuthority[1],
                                            pAuthority[2], pAuthority[3], pAuthority[4], pAuthority[5]));
            o_pszText = std::copy(szAuthority, szAuthority + std::size(szAuthority) - 1, o_pszText);
        } else {
            o_pszText = PutNumber((uint32_t{pAuthority[2]} << 24) | (uint32_t{pAuthority[3]} << 16) |
                                      (uint32_t{pAuthority[4]} << 8) | uint32_t{pAuthority[5]},
                                  o_pszText);
        }
        for (DWORD i = 0; i < i_nSubAuthorities; ++i) {
            *o_pszText++ = u'-';
            if (i + 1U < i_nSubAuthorities) {
                o_pszText = PutNumber(*m_tokens.GetSidSubAuthority(i_pSid, i), o_pszText);
            }
        }
        return o_pszText;
    }

    TokenCalls& m_tokens = Platform::Tokens();
    TextRoom m_room;
    size_t m_nLength = 0;
    PSID m_pBefore = nullptr;
    size_t m_nBegin = 0;       // where its text begins
    size_t m_nHeadLength = 0;  // of its text before the last number
};

// One kind of information about a token: its own bytes as long as the information fits the default size.
class UserDataBuffer {
public:
    // Only what the system writes is read.
    // cppcheck-suppress uninitMemberVar
    UserDataBuffer() = default;  // NOLINT(*-pro-type-member-init)
    UserDataBuffer(const UserDataBuffer&) = delete;
    UserDataBuffer& operator=(const UserDataBuffer&) = delete;

    explicit operator bool() const noexcept { return m_pBytes != nullptr; }
    template <class Record>
    const Record& As() const noexcept {
        return *reinterpret_cast<const Record*>(m_pBytes);
    }

    // Bytes to write to, in place of those before. Throws std::bad_alloc.
    BYTE* Allocate(DWORD i_nSize) {
        if (i_nSize > sizeof m_aFirst) {
            m_pLarger = std::make_unique_for_overwrite<BYTE[]>(i_nSize);
        }
        return m_pLarger ? m_pLarger.get() : m_aFirst;
    }
    void Take(BYTE* i_pBytes) noexcept { m_pBytes = i_pBytes; }

private:
    alignas(std::max_align_t) BYTE m_aFirst[SSPI_DEFAULT_USER_DATA_BUFFER_SIZE];
    std::unique_ptr<BYTE[]> m_pLarger;
    BYTE* m_pBytes = nullptr;
};

// Throws SSOException; the buffer is then as it was.
void GetUserData(HANDLE i_hUserHandle, TOKEN_INFORMATION_CLASS i_eClass, UserDataBuffer* o_TokenInformation) {
    S_ASSERT(i_hUserHandle);
    S_ASSERT(o_TokenInformation);
    if (i_hUserHandle == nullptr || o_TokenInformation == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    if (*o_TokenInformation) {
        S_TRACE(
            "ssoplugin: KerberosSSPIHandler::GetUserData() -- Non-NULL out-param.  This will be overwritten and lost!");
        S_ASSERT(!*o_TokenInformation);
    }
    const auto allocate = [o_TokenInformation](DWORD i_nSize) {
        try {
            return o_TokenInformation->Allocate(i_nSize);
        } catch (const std::bad_alloc&) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- Out of memory!");
            throw SSOException(SSOException::OutOfMemory());
        }
    };
    BYTE* pBuffer = allocate(SSPI_DEFAULT_USER_DATA_BUFFER_SIZE);
    DWORD dwRequiredBufferSize = 0;
    if (!Platform::Tokens().GetTokenInformation(i_hUserHandle, i_eClass, pBuffer, SSPI_DEFAULT_USER_DATA_BUFFER_SIZE,
                                                &dwRequiredBufferSize)) {
        if (const DWORD nError = Platform::Kernel().GetLastError(); nError != ERROR_INSUFFICIENT_BUFFER) {
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- GetTokenInformation failed (first try).");
            ThrowSystemFailure(nError, kMsgGeneral);
        }
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- Reallocating buffer.  Size is %1.",
                uint64_t{dwRequiredBufferSize});
        S_ASSERT(dwRequiredBufferSize > SSPI_DEFAULT_USER_DATA_BUFFER_SIZE);
        pBuffer = allocate(dwRequiredBufferSize);
        if (!Platform::Tokens().GetTokenInformation(i_hUserHandle, i_eClass, pBuffer, dwRequiredBufferSize,
                                                    &dwRequiredBufferSize)) {
            const DWORD nError = Platform::Kernel().GetLastError();
            S_TRACE("ssoplugin: KerberosSSPIHandler::GetUserData() -- GetTokenInformation failed (second try).");
            ThrowSystemFailure(nError, kMsgGeneral);
        }
    }
    S_ASSERT(pBuffer);
    o_TokenInformation->Take(pBuffer);
}

void ReadUser(HANDLE i_hUser, Parameters& o_parameters) {
    SWCharString ssSid;
    UserDataBuffer pUserDataBuffer;
    GetUserData(i_hUser, TokenUser, &pUserDataBuffer);
    S_ASSERT(pUserDataBuffer);
    SIDToSString(pUserDataBuffer.As<TOKEN_USER>().User.Sid, ssSid);
    S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- User's SID is %1", ssSid);
    o_parameters.SetParameter(u"SSPI_USER_SID"_ss, ssSid);
}

void ReadGroups(HANDLE i_hUser, Parameters& o_parameters) {
    UserDataBuffer pGroupDataBuffer;
    GetUserData(i_hUser, TokenGroups, &pGroupDataBuffer);
    S_ASSERT(pGroupDataBuffer);
    const auto& groups = pGroupDataBuffer.As<TOKEN_GROUPS>();
    const SID_AND_ATTRIBUTES* pGroup = groups.Groups;
    constexpr size_t kUsualSidLength = 48;
    SidTexts texts((groups.GroupCount + size_t{2}) * kUsualSidLength);
    for (DWORD i = 0; i < groups.GroupCount; ++i, ++pGroup) {
        const size_t nBefore = texts.Length();
        texts.Append(pGroup->Sid);
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Group's SID is %1",
                SWCharString(texts.From(nBefore)));
        texts.AppendSeparator();
    }
    o_parameters.SetParameter(u"SSPI_USER_GROUP_SIDS"_ss, texts.Take());
}

}  // namespace

void GetLogonInformation(const SSOSessionPtr& i_pSession, Parameters& o_parameters) {
    const auto pSession = CountedCast<SSPISession>(i_pSession);
    if (!pSession) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- Wrong type of SSOSessionPtr passed in.");
        throw SSOException(SSO_ERROR);
    }
    Parameters information = o_parameters;
    LogonToken token(pSession->GetContext());
    // Whatever has failed before, the host must learn that this thread is not itself.
    const auto requireEnd = [&token] {
        if (!token.End()) {
            throw SSOException(SSO_ERROR, kMsgImpersonation);
        }
    };
    try {
        ReadUser(token.get(), information);
        ReadGroups(token.get(), information);
    } catch (const std::bad_alloc&) {
        requireEnd();
        throw SSOException(SSOException::OutOfMemory());
    } catch (...) {
        requireEnd();
        throw;
    }
    requireEnd();
    o_parameters = std::move(information);
}

bool IsKnownToDirectory(const SSOSessionPtr& i_pSession) {
    const auto pSession = CountedCast<SSPISession>(i_pSession);
    HANDLE hUser = nullptr;
    const SECURITY_STATUS nStatus = Platform::Sspi().OpenContextToken(pSession->GetContext(), &hUser);
    if (nStatus == SEC_E_UNSUPPORTED_FUNCTION) {
        return true;
    }
    if (nStatus != SEC_E_OK) {
        S_TRACE("ssoplugin: KerberosSSPIHandler::GetLogonInformation() -- OpenContextToken() failed: %1",
                GetErrorText(nStatus));
        if (nStatus == SEC_E_INSUFFICIENT_MEMORY) {
            throw SSOException(SSOException::OutOfMemory());
        }
        return false;
    }
    const auto close = [](void* i_hUser) { static_cast<void>(Platform::Tokens().CloseHandle(i_hUser)); };
    const std::unique_ptr<void, decltype(close)> pUser(hUser, close);
    UserDataBuffer user;
    GetUserData(hUser, TokenUser, &user);
    const PSID pSid = user.As<TOKEN_USER>().User.Sid;
    constexpr BYTE kUnixAuthority[] = {0, 0, 0, 0, 0, 22};
    return Platform::Tokens().IsValidSid(pSid) != FALSE &&
           !std::equal(std::begin(kUnixAuthority), std::end(kUnixAuthority),
                       Platform::Tokens().GetSidIdentifierAuthority(pSid)->Value);
}

void SIDToSString(PSID i_pSid, SWCharString& o_ssText) {
    try {
        constexpr size_t kUsualRoom = 256;
        SidTexts text(kUsualRoom);
        text.Append(i_pSid);
        o_ssText = text.Take();
    } catch (const std::bad_alloc&) {
        S_ASSERT_MSG(false, "ssoplugin: KerberosSSPIHandler::SIDToSString() -- Out of memory");
        S_ASSERT_TEXT(false, "pszTextualSid");
        throw SSOException(SSOException::OutOfMemory());
    }
}

}  // namespace morwen
