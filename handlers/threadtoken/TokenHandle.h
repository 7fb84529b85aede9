// The owner of an access token's handle.
#pragma once

#include <utility>

#include "harrow/log/STrace.h"
#include "platform/Platform.h"

namespace morwen {

// A null handle is no token. A handle that cannot be closed is reported with the owner's text.
class TokenHandle {
public:
    explicit TokenHandle(const char* i_pszCloseFailed) noexcept : m_pszCloseFailed(i_pszCloseFailed) {}
    TokenHandle(const char* i_pszCloseFailed, HANDLE i_hToken) noexcept
        : m_pszCloseFailed(i_pszCloseFailed), m_hToken(i_hToken) {}
    ~TokenHandle() { Reset(nullptr); }
    TokenHandle(const TokenHandle&) = delete;
    TokenHandle& operator=(const TokenHandle&) = delete;

    HANDLE get() const noexcept { return m_hToken; }
    HANDLE Detach() noexcept { return std::exchange(m_hToken, nullptr); }
    void Reset(HANDLE i_hToken) noexcept {
        const HANDLE hOld = std::exchange(m_hToken, i_hToken);
        if (hOld != nullptr && !Platform::Tokens().CloseHandle(hOld)) {
            S_FAIL(m_pszCloseFailed);
        }
    }

private:
    const char* m_pszCloseFailed;
    HANDLE m_hToken = nullptr;
};

}  // namespace morwen
