// Who logged on: the security identifiers of an accepted login.
#pragma once

#include <cstddef>
#include <memory>

#include "params/Parameters.h"
#include "platform/OsTypes.h"
#include "sessions/SSOSession.h"

namespace morwen {

// Adds SSPI_USER_SID and SSPI_USER_GROUP_SIDS (each SID followed by ";", in the token's order). The calling thread is
// itself again on every way out. Throws SSOException.
void GetLogonInformation(const SSOSessionPtr& i_pSession, Parameters& o_parameters);

// Room for what the system says about a token. Mostly none is allocated: a block of this size costs the C library more
// than the call that fills it. Only what the system has written may be read. Never smaller than the usual size.
class UserData {
public:
    static constexpr DWORD kUsualSize = 4096;

    UserData() noexcept {}  // NOLINT(modernize-use-equals-default): the room stays as it is
    UserData(const UserData&) = delete;
    UserData& operator=(const UserData&) = delete;

    void* get() noexcept { return m_pMore ? m_pMore.get() : m_aUsual; }
    // Loses the content. Throws std::bad_alloc.
    void Grow(DWORD i_nSize) {
        if (i_nSize > kUsualSize) {
            m_pMore = std::make_unique_for_overwrite<BYTE[]>(i_nSize);
        }
    }

private:
    alignas(std::max_align_t) BYTE m_aUsual[kUsualSize];
    std::unique_ptr<BYTE[]> m_pMore;
};

// Reads one kind of information about a token. Throws SSOException.
void GetUserData(HANDLE i_hUserHandle, TOKEN_INFORMATION_CLASS i_eClass, UserData& o_data);

// The textual form, for example S-1-5-18. Throws SSOException for what is not a security identifier.
void SIDToSString(PSID i_pSid, SWCharString& o_ssText);

}  // namespace morwen
