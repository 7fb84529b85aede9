// Client: whether the realm takes the user's password.
#include "platform/linux/krb5/SspiFailure.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

struct Answer {
    const char* m_pszId;
    std::string m_remedy;
};

Answer AnswerFor(krb5_error_code i_nCode, const std::string& i_user) {
    const std::string user = Quoted(i_user);
    switch (i_nCode) {
        case KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN:
            return {"user-unknown", "compare name and realm with what the realm has: kadmin getprinc " + user +
                                        ", in a directory the account's user principal name"};
        case KRB5KDC_ERR_CLIENT_REVOKED:
        case KRB5KDC_ERR_NAME_EXP:
        case KRB5KDC_ERR_CLIENT_NOTYET:
            return {"user-locked", "kadmin getprinc " + user + " shows why; kadmin modprinc -unlock " + user +
                                       " or +allow_tix; in a directory unlock or enable the account"};
        case KRB5KDC_ERR_KEY_EXP:
            return {"password-expired", "the user changes it: kpasswd " + user};
        case KRB5KDC_ERR_PREAUTH_FAILED:
        case KRB5_PREAUTH_FAILED:
        case KRB5KRB_AP_ERR_BAD_INTEGRITY:
            return {"password-wrong",
                    "type it again, with the right keyboard layout; kadmin cpw " + user + " sets another one"};
        default:
            return {"password-refused", "the KDC's log names the reason; see also what stands above about the KDCs"};
    }
}

}  // namespace

bool CheckPassword(Case& io_case) {
    const std::string& user = io_case.m_options.m_user;
    const std::string lookedAt = "the password of " + user;
    const size_t nBackslash = user.find('\\');
    const size_t nUser = nBackslash == std::string::npos ? 0 : nBackslash + 1;
    io_case.m_pLogon = std::make_unique<PasswordLogon>(user.substr(0, nUser == 0 ? 0 : nBackslash), user.substr(nUser),
                                                       *io_case.m_options.m_ssPassword);
    try {
        krb5_cc_set_default_name(io_case.Context(), io_case.m_pLogon->Cache(io_case.Context()).c_str());
        io_case.m_report.Ok("password", lookedAt, "the realm takes it");
        return true;
    } catch (const SspiFailure& failure) {
        const Answer answer = AnswerFor(failure.Krb5Code(), user.substr(nUser));
        io_case.m_report.Fail(answer.m_pszId, lookedAt, std::string(FailureText(failure.Status())), answer.m_remedy);
        return false;
    }
}

}  // namespace morwen::doctor
