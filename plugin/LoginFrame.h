// The frame of the login operations: the host's outputs are checked before, and hold all or nothing after.
#pragma once

#include "sessions/LoginStep.h"

namespace morwen {

// Reports an output that would be overwritten. The condition's text may be null where the message says it all.
void RequireNull(const void* i_pvOutput, const char* i_pszCondition, const char* i_pszMessage) noexcept;

// The host's copy of a key, made before there is one: no memory may be wanted any more when a login or a context exists
// that only its key can end.
class KeyForHost {
public:
    // Throws SSOException when memory is short.
    KeyForHost();
    ~KeyForHost();
    KeyForHost(const KeyForHost&) = delete;
    KeyForHost& operator=(const KeyForHost&) = delete;

    // Null for an empty key. Once.
    SSOChar* HandOut(const Harrowlib201::SWCharString& i_ssKey);

private:
    SSOChar* m_pszKey;
};

// One operation that gives the host a token and a key. Whatever was handed out before it fails is taken back.
class LoginFrame {
public:
    // Checks and clears the outputs. The texts are the operation's own: outputs that are missing, and those that are
    // not empty. Throws SSOException.
    LoginFrame(void** o_ppvBuffer, SSOLength* o_pnBufferLength, SSOChar** o_ppSessionKey, const char* i_pszMissing,
               const char* i_pszNotEmpty);
    ~LoginFrame();
    LoginFrame(const LoginFrame&) = delete;
    LoginFrame& operator=(const LoginFrame&) = delete;

    LoginStep m_step;

    // The step has succeeded with this result, and the host gets the key too.
    uint32_t HandOut(uint32_t i_nResult);

private:
    SSOChar** m_ppSessionKey;
    KeyForHost m_key;
    bool m_bDone = false;
};

}  // namespace morwen
