// A peer that speaks through this library.
#pragma once

#include <sys/prctl.h>

#include <cstring>

#include "morwen/harrow_log.h"
#include "morwen/host.hpp"
#include "realm/Login.h"

namespace morwen {

// One side of one exchange. The initiating side always asks for mutual authentication, and for delegation to services
// that the realm trusts.
class LibraryPeer {
public:
    LibraryPeer() {
        static host::Package s_package;
        HarrowLogSetSink(KeepReason, nullptr, HARROW_LOG_TRACE);
        s_package.Use(SSO_PROVIDER_SSPI, host::Parameters().Set(SSO_KEY_CACHE_CONTEXTS, true));
        s_reason.clear();
    }

    Bytes Initiate(const std::string& i_service, uint32_t, std::span<const uint8_t> i_token = {}) {
        const std::u16string user = Wide(s_kept);
        const bool bActs = i_token.empty() && !user.empty() && SSOImpersonate(user.c_str()) == SSO_OK;
        LoginResult login = i_token.empty() ? StartLogin({"", "", i_service}) : ContinueLogin(m_key, i_token);
        if (bActs != (i_token.empty() && !user.empty()) || (bActs && SSORevert(user.c_str()) != SSO_OK)) {
            login.m_verdict = "as somebody else";
        }
        m_key = i_token.empty() ? login.m_key : m_key;
        m_outcome = login.m_verdict == "0" ? "logged on" : OutcomeOf(login);
        return login.m_token;
    }

    // "SID", followed by " delegating SID" when the thread, acting as the user, logs on again.
    Bytes Accept(std::span<const uint8_t> i_token) {
        const LoginResult accepted = AcceptLogin(i_token, {}, Information::NotWanted);
        const LoginResult closed = accepted.m_verdict == "1" ? CloseLogin(accepted.m_key) : accepted;
        m_outcome = closed.m_verdict == "2" ? closed.m_userSid : OutcomeOf(closed);
        const std::u16string key = Wide(closed.m_key);
        if (closed.m_verdict == "2" && SSOImpersonate(key.c_str()) == SSO_OK) {
            const LoginResult hop = LogOn();
            m_outcome += hop.m_verdict == kLoggedOn ? " delegating " + hop.m_userSid : "";
            m_outcome += SSORevert(key.c_str()) == SSO_OK ? "" : " and never the service again";
            prctl(PR_SET_DUMPABLE, 1);  // the sanitizers look at the process at its end
        }
        if (getenv("MORWEN_GOES_ON") != nullptr) {
            s_kept = closed.m_key;  // as whom it initiates
        } else {
            SSOReleaseSecurityContext(key.c_str());
        }
        return accepted.m_token;
    }

    std::string Outcome() const { return m_outcome; }

private:
    static std::string OutcomeOf(const LoginResult& i_login) {
        return i_login.m_verdict == "1" ? "unfinished" : "failed " + i_login.m_verdict + " " + s_reason;
    }
    static void KeepReason(uint32_t, const char*, int, const char* i_pszMessage, void*) {
        if (const char* const pszReason = std::strstr(i_pszMessage, "-- Failed with ")) {
            s_reason = pszReason;
        }
    }

    static inline std::string s_reason;
    static inline std::string s_kept;
    std::string m_key;
    std::string m_outcome;
};

}  // namespace morwen
