// A cached context that somebody works with.
#pragma once

#include <utility>

#include "handlers/StaticToken.h"
#include "harrow/locks/LocksHeld.h"

namespace morwen {

// To be made under the cache's lock, and used without it: asking the system about one user's account may take seconds,
// which must cost nobody else. The clean-up leaves a token alone that is at work, and a removal waits for its end.
class TokenAtWork {
public:
    // Null where no key was found; the token may be null all the same.
    explicit TokenAtWork(const StaticTokenPtr* i_pFound) noexcept
        : m_bFound(i_pFound != nullptr), m_held(Harrowlib201::NoteLocked()) {
        if (m_bFound && *i_pFound) {
            m_pToken = *i_pFound;
            m_pToken->BeginWork();
        }
    }
    ~TokenAtWork() {
        if (m_pToken) {
            m_pToken->EndWork();
        }
        Harrowlib201::NoteUnlocked(m_held);
    }
    TokenAtWork(const TokenAtWork&) = delete;
    TokenAtWork& operator=(const TokenAtWork&) = delete;

    bool IsFound() const noexcept { return m_bFound; }
    explicit operator bool() const noexcept { return static_cast<bool>(m_pToken); }
    StaticToken* operator->() const noexcept { return m_pToken.get(); }

private:
    StaticTokenPtr m_pToken;  // goes last, and may end the context
    bool m_bFound;
    // Others wait for the end of this as for that of a lock, so no sink of the host may run meanwhile.
    Harrowlib201::LocksHeld& m_held;
};

}  // namespace morwen
