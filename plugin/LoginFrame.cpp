#include "plugin/LoginFrame.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "errors/HostText.h"
#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "plugin/SSOImpl.h"
#include "sessions/SessionManager.h"

namespace morwen {

using namespace Harrowlib201;

namespace {

constexpr std::u16string_view kRoomForKeys = u"DUMMY_KEY__CACHING_IS_OFF or a number";

// Before anything is allocated.
SSOChar** CheckedOutputs(void** o_ppvBuffer, SSOLength* o_pnBufferLength, SSOChar** o_ppSessionKey,
                         const char* i_pszMissing, const char* i_pszNotEmpty) {
    S_ASSERT(o_ppvBuffer);
    S_ASSERT(o_pnBufferLength);
    S_ASSERT(o_ppSessionKey);
    if (o_ppvBuffer == nullptr || o_pnBufferLength == nullptr || o_ppSessionKey == nullptr) {
        S_REASON(i_pszMissing);
        throw SSOException(SSO_ERROR);
    }
    RequireNull(*o_ppvBuffer, "*o_ppvBuffer == NULL", i_pszNotEmpty);
    RequireNull(*o_ppSessionKey, "*o_ppSessionKey == NULL", i_pszNotEmpty);
    *o_ppvBuffer = nullptr;
    *o_ppSessionKey = nullptr;
    *o_pnBufferLength = 0;
    return o_ppSessionKey;
}

}  // namespace

void RequireNull(const void* i_pvOutput, const char* i_pszCondition, const char* i_pszMessage) noexcept {
    if (i_pvOutput != nullptr && ShouldAssert()) {
        SAssert(__FILE__, __LINE__, i_pszCondition, i_pszMessage);
    }
}

KeyForHost::KeyForHost() : m_pszKey(SSOImpl::AllocateString(SWCharString(kRoomForKeys))) {}

KeyForHost::~KeyForHost() {
    FreeHostText(m_pszKey);
}

SSOChar* KeyForHost::HandOut(const SWCharString& i_ssKey) {
    const auto key = i_ssKey.view();
    if (key.empty()) {
        return nullptr;
    }
    if (key.size() > kRoomForKeys.size()) {
        throw SSOException(SSO_ERROR);  // no key is that long
    }
    *std::copy(key.begin(), key.end(), m_pszKey) = u'\0';
    return std::exchange(m_pszKey, nullptr);
}

LoginFrame::LoginFrame(void** o_ppvBuffer, SSOLength* o_pnBufferLength, SSOChar** o_ppSessionKey,
                       const char* i_pszMissing, const char* i_pszNotEmpty)
    : m_ppSessionKey(CheckedOutputs(o_ppvBuffer, o_pnBufferLength, o_ppSessionKey, i_pszMissing, i_pszNotEmpty)) {
    m_step.m_ppvBuffer = o_ppvBuffer;
    m_step.m_pnBufferLength = o_pnBufferLength;
}

LoginFrame::~LoginFrame() {
    if (!m_bDone) {
        SessionManager::FreeExternalBuffer(*m_step.m_ppvBuffer);
        *m_step.m_ppvBuffer = nullptr;
        *m_step.m_pnBufferLength = 0;
    }
}

uint32_t LoginFrame::HandOut(uint32_t i_nResult) {
    *m_ppSessionKey = m_key.HandOut(m_step.m_ssKey);
    m_bDone = true;
    return i_nResult;
}

}  // namespace morwen
