// The calls on tokens and security identifiers, over this layer's own token table.
#include "platform/linux/LinuxTokens.h"

#include <unistd.h>

#include <cstring>
#include <limits>
#include <new>
#include <span>

#include "platform/linux/LastError.h"
#include "platform/linux/LocalAccount.h"
#include "platform/linux/PseudoHandles.h"
#include "platform/linux/TokenIdentity.h"

namespace morwen {

namespace {

// What the groups of a token carry: mandatory, enabled by default, enabled.
constexpr DWORD kGroupAttributes = 0x7;

// Empty when the kernel's answer changes faster than it is read.
std::vector<gid_t> ProcessGroups() {
    const int nCount = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<size_t>(nCount > 0 ? nCount : 0) + 1);
    groups[0] = getegid();
    const int nRead = nCount > 0 ? getgroups(nCount, groups.data() + 1) : 0;
    groups.resize(nRead >= 0 ? static_cast<size_t>(nRead) + 1 : 0);
    return groups;
}

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
    // A thread that is itself has no token of its own.
    return FailWithLastError(i_hThread == CurrentThreadHandle() ? ERROR_NO_TOKEN : ERROR_INVALID_HANDLE);
}

BOOL LinuxTokens::OpenProcessToken(HANDLE i_hProcess, DWORD, HANDLE* o_phToken) noexcept {
    if (o_phToken == nullptr) {
        return FailWithLastError(ERROR_INVALID_PARAMETER);
    }
    *o_phToken = nullptr;
    if (i_hProcess != CurrentProcessHandle()) {
        return FailWithLastError(ERROR_INVALID_HANDLE);
    }
    try {
        const std::vector<gid_t> groups = ProcessGroups();
        if (groups.empty()) {
            return FailWithLastError(ERROR_ACCESS_DENIED);
        }
        *o_phToken = OpenToken(UnixIdentity(geteuid(), groups));
        return TRUE;
    } catch (const std::bad_alloc&) {
        return FailWithLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL LinuxTokens::GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer,
                                      DWORD i_nLength, DWORD* o_pnRequiredLength) noexcept {
    const std::shared_ptr<const TokenIdentity> pIdentity = FindToken(i_hToken);
    if (pIdentity == nullptr) {
        return FailWithLastError(ERROR_INVALID_HANDLE);
    }
    const bool bUser = i_eClass == TokenUser;
    if ((!bUser && i_eClass != TokenGroups) || o_pnRequiredLength == nullptr ||
        !IsAligned(o_pvBuffer, alignof(TOKEN_GROUPS))) {
        return FailWithLastError(ERROR_INVALID_PARAMETER);
    }
    const std::span<const Sid> sids = bUser ? std::span(&pIdentity->m_user, 1) : std::span(pIdentity->m_groups);
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
    return FailWithLastError(FindToken(i_hToken) != nullptr ? ERROR_NOT_SUPPORTED : ERROR_INVALID_HANDLE);
}

BOOL LinuxTokens::RevertToSelf() noexcept {
    // No thread is ever anybody else yet.
    return TRUE;
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
