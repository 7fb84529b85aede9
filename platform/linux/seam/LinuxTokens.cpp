// The calls on tokens and security identifiers, over this layer's own token table.
#include "platform/linux/seam/LinuxTokens.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <system_error>
#include <utility>

#include "platform/linux/identity/ServiceRecord.h"
#include "platform/linux/identity/ThreadIdentity.h"
#include "platform/linux/identity/TokenIdentity.h"
#include "platform/linux/seam/LinuxKernel.h"
#include "platform/linux/seam/TokenTable.h"

namespace morwen {

namespace {

// What the groups of a token carry: mandatory, enabled by default, enabled.
constexpr DWORD kGroupAttributes = 0x7;

// The record, with its SIDs behind it, in one buffer of the caller.
class InformationWriter {
public:
    InformationWriter(size_t i_nRecordBytes, std::span<const Sid> i_sids) : m_sids(i_sids), m_nBytes(i_nRecordBytes) {
        for (const Sid& sid : i_sids) {
            m_nBytes += sid.SizeInBytes();
        }
        m_nRecordBytes = i_nRecordBytes;
    }

    size_t Bytes() const noexcept { return m_nBytes; }

    // Fills o_pRecords[i] with the i-th SID.
    void Write(void* o_pvBuffer, SID_AND_ATTRIBUTES* o_pRecords, DWORD i_nAttributes) const noexcept {
        auto* pEnd = static_cast<std::byte*>(o_pvBuffer) + m_nRecordBytes;
        for (const Sid& sid : m_sids) {
            std::memcpy(pEnd, sid.Record(), sid.SizeInBytes());
            *o_pRecords++ = {pEnd, i_nAttributes};
            pEnd += sid.SizeInBytes();
        }
    }

private:
    std::span<const Sid> m_sids;
    size_t m_nRecordBytes = 0;
    size_t m_nBytes;
};

// Records hold pointers, and SIDs are multiples of four bytes: behind an aligned record every SID is aligned.
static_assert(sizeof(TOKEN_USER) % alignof(SID) == 0 && offsetof(TOKEN_GROUPS, Groups) % alignof(SID) == 0 &&
              sizeof(SID_AND_ATTRIBUTES) % alignof(SID) == 0);

bool IsAligned(const void* i_pvMemory, size_t i_nAlignment) {
    return reinterpret_cast<uintptr_t>(i_pvMemory) % i_nAlignment == 0;
}

SID* AsSid(PSID i_pSid) {
    return static_cast<SID*>(i_pSid);
}

}  // namespace

BOOL LinuxTokens::OpenThreadToken(HANDLE i_hThread, DWORD, BOOL, HANDLE* o_phToken) noexcept {
    if (o_phToken == nullptr) {
        return FailWithLastError(ERROR_INVALID_PARAMETER);
    }
    *o_phToken = nullptr;
    if (i_hThread != CurrentThreadHandle()) {
        return FailWithLastError(ERROR_INVALID_HANDLE);
    }
    if (IsThreadStuck()) {
        return FailWithLastError(ERROR_ACCESS_DENIED);
    }
    auto pIdentity = ImpersonatedIdentity();
    if (pIdentity == nullptr) {
        return FailWithLastError(ERROR_NO_TOKEN);  // a thread that is itself has no token of its own
    }
    try {
        *o_phToken = OpenToken(std::move(pIdentity));
        return TRUE;
    } catch (const std::bad_alloc&) {
        return FailWithLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL LinuxTokens::OpenProcessToken(HANDLE i_hProcess, DWORD, HANDLE* o_phToken) noexcept {
    if (o_phToken == nullptr) {
        return FailWithLastError(ERROR_INVALID_PARAMETER);
    }
    *o_phToken = nullptr;
    if (i_hProcess != CurrentProcessHandle()) {
        return FailWithLastError(ERROR_INVALID_HANDLE);
    }
    // A thread that is somebody else must not get hold of the service's identity because its own could not be read.
    if (IsThreadStuck() || ImpersonatedIdentity() != nullptr) {
        return FailWithLastError(ERROR_ACCESS_DENIED);
    }
    try {
        auto pIdentity = std::make_shared<TokenIdentity>();
        pIdentity->m_account = ServiceAccount();
        pIdentity->m_bService = IsServiceAccount(*pIdentity->m_account);
        *o_phToken = OpenToken(std::move(pIdentity));
        return TRUE;
    } catch (const std::bad_alloc&) {
        return FailWithLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (const std::system_error&) {
        return FailWithLastError(ERROR_ACCESS_DENIED);
    }
}

BOOL LinuxTokens::GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer,
                                      DWORD i_nLength, DWORD* o_pnRequiredLength) noexcept {
    // The first of all faults, looked for where there is another.
    const auto fail = [i_hToken](DWORD i_nError) {
        return FailWithLastError(FindToken(i_hToken) == nullptr ? DWORD{ERROR_INVALID_HANDLE} : i_nError);
    };
    const bool bUser = i_eClass == TokenUser;
    if ((!bUser && i_eClass != TokenGroups) || o_pnRequiredLength == nullptr ||
        !IsAligned(o_pvBuffer, alignof(TOKEN_GROUPS))) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    std::shared_ptr<const TokenSids> pSids;
    try {
        pSids = SidsOfToken(i_hToken);
    } catch (const std::bad_alloc&) {
        return FailWithLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (pSids == nullptr) {
        return fail(ERROR_INVALID_SID);
    }
    const std::span<const Sid> sids = bUser ? std::span(&pSids->m_user, 1) : std::span(pSids->m_groups);
    const InformationWriter writer(
        bUser ? sizeof(TOKEN_USER) : offsetof(TOKEN_GROUPS, Groups) + sids.size() * sizeof(SID_AND_ATTRIBUTES), sids);
    if (writer.Bytes() > std::numeric_limits<DWORD>::max()) {
        return FailWithLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    *o_pnRequiredLength = static_cast<DWORD>(writer.Bytes());
    if (o_pvBuffer == nullptr || i_nLength < *o_pnRequiredLength) {
        return FailWithLastError(ERROR_INSUFFICIENT_BUFFER);
    }
    if (bUser) {
        writer.Write(o_pvBuffer, &static_cast<TOKEN_USER*>(o_pvBuffer)->User, 0);
    } else {
        auto* const pGroups = static_cast<TOKEN_GROUPS*>(o_pvBuffer);
        pGroups->GroupCount = static_cast<DWORD>(sids.size());
        writer.Write(o_pvBuffer, pGroups->Groups, kGroupAttributes);
    }
    return TRUE;
}

BOOL LinuxTokens::ImpersonateLoggedOnUser(HANDLE i_hToken) noexcept {
    auto pIdentity = FindToken(i_hToken);
    if (pIdentity == nullptr) {
        return FailWithLastError(ERROR_INVALID_HANDLE);
    }
    const int nError = ImpersonateIdentity(std::move(pIdentity));
    return nError == 0 ? TRUE : FailWithLastError(nError == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_ACCESS_DENIED);
}

BOOL LinuxTokens::RevertToSelf() noexcept {
    return RevertThread() == 0 ? TRUE : FailWithLastError(ERROR_ACCESS_DENIED);
}

BOOL LinuxTokens::CloseHandle(HANDLE i_hToken) noexcept {
    return CloseToken(i_hToken) ? TRUE : FailWithLastError(ERROR_INVALID_HANDLE);
}

BOOL LinuxTokens::IsValidSid(PSID i_pSid) noexcept {
    return i_pSid != nullptr && IsAligned(i_pSid, alignof(SID)) && AsSid(i_pSid)->Revision == SID_REVISION &&
                   AsSid(i_pSid)->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES
               ? TRUE
               : FALSE;
}

SID_IDENTIFIER_AUTHORITY* LinuxTokens::GetSidIdentifierAuthority(PSID i_pSid) noexcept {
    return IsValidSid(i_pSid) != FALSE ? &AsSid(i_pSid)->IdentifierAuthority : nullptr;
}

BYTE* LinuxTokens::GetSidSubAuthorityCount(PSID i_pSid) noexcept {
    return IsValidSid(i_pSid) != FALSE ? &AsSid(i_pSid)->SubAuthorityCount : nullptr;
}

DWORD* LinuxTokens::GetSidSubAuthority(PSID i_pSid, DWORD i_nIndex) noexcept {
    if (IsValidSid(i_pSid) == FALSE || i_nIndex >= AsSid(i_pSid)->SubAuthorityCount) {
        t_nLastError = ERROR_INVALID_PARAMETER;
        return nullptr;
    }
    // Counted from the record's start, because its array is declared with one element and has more.
    auto* const pBytes = static_cast<std::byte*>(i_pSid);
    return reinterpret_cast<DWORD*>(pBytes + offsetof(SID, SubAuthority) + i_nIndex * sizeof(DWORD));
}

}  // namespace morwen
