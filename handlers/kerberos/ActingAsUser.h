// The calling thread as the user of a security context, and back; and whom it acted as before.
#pragma once

#include "platform/OsTypes.h"

namespace morwen {

// What is said when the thread does not become itself again in the first or in the second way.
struct RevertTexts {
    const char* m_pszRefused;    // the package refuses; its status, in decimal, takes the place of "%d". Null: nothing
    const char* m_pszCondition;  // of the assertion that nothing makes the thread itself again
    const char* m_pszMessage;    // of the same; may be null
};

// By the context's package, or else without it. False, and the assertion, when neither has made the thread itself
// again.
bool RevertFromUser(CtxtHandle* i_pContext, const RevertTexts& i_texts) noexcept;
bool RevertToProcess(const RevertTexts& i_texts) noexcept;

// The user whom the calling thread acts as already, found out by asking for its token, so that the thread can be that
// user again after having been somebody else.
class EarlierUser {
public:
    // Throws SSOException (kMsgImpersonation) when it cannot be found out.
    EarlierUser();
    ~EarlierUser();
    EarlierUser(const EarlierUser&) = delete;
    EarlierUser& operator=(const EarlierUser&) = delete;

    // Makes the thread the service for now. False when it could not.
    bool Leave() const noexcept;
    // False when the thread could not be made the earlier user again. Does nothing when there was none.
    bool Resume() const noexcept;

private:
    HANDLE m_hUser = nullptr;
};

// Acts as the context's user from Begin until End, or until this object goes.
class ActingAsUser {
public:
    // What is given must live as long.
    ActingAsUser(CtxtHandle* i_pContext, const RevertTexts& i_texts) noexcept
        : m_pContext(i_pContext), m_texts(i_texts) {}
    ~ActingAsUser() { static_cast<void>(End()); }
    ActingAsUser(const ActingAsUser&) = delete;
    ActingAsUser& operator=(const ActingAsUser&) = delete;

    // What the package says; SEC_E_OK when the thread acts as the user.
    SECURITY_STATUS Begin() noexcept;
    // False when the thread could not be made itself again. Does nothing on a thread that is.
    bool End() noexcept;

private:
    CtxtHandle* const m_pContext;
    const RevertTexts& m_texts;
    bool m_bActing = false;
};

}  // namespace morwen
