/* The client's half of a login, for the example hosts. */
#include "host_login.h"

#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "host_net.h"
#include "host_report.h"

enum { kSecondsForLogin = 30 };

/* Sends what the last step gave; without anything more to come, says so. */
static bool SendStep(const Connection* i_pConnection, uint32_t i_nCode, const void* i_pvToken, SSOLength i_nLength) {
    if (i_pvToken != NULL && SendFrame(i_pConnection, FRAME_TOKEN, i_pvToken, i_nLength) != 0) {
        return false;
    }
    return i_nCode != SSO_OK || SendFrame(i_pConnection, FRAME_DONE, NULL, 0) == 0;
}

/* Carries tokens to and fro. In: what the first step gave. Returns the exit status. */
static int Exchange(const Connection* i_pConnection, uint32_t i_nCode, const SSOChar* i_pszKey, const void* i_pvToken,
                    SSOLength i_nLength) {
    uint32_t code = i_nCode;
    bool sent = SendStep(i_pConnection, code, i_pvToken, i_nLength);
    Frame frame;
    while (sent && ReceiveFrame(i_pConnection, &frame) == 0) {
        int status = -1;
        if (frame.kind == FRAME_TOKEN && code == SSO_CONTINUE) {
            void* token = NULL;
            SSOLength length = 0;
            code = SSOContinueLogin(i_pszKey, frame.data, frame.length, &token, &length);
            if (code == SSO_OK || code == SSO_CONTINUE) {
                sent = SendStep(i_pConnection, code, token, length);
            } else { /* the server is not who it says, or it answers nonsense */
                ReportFailure("the server's answer is refused", code);
                status = kRefused;
            }
            SSOFreeBuffer(token);
        } else if (frame.kind == FRAME_WELCOME && code == SSO_OK) { /* only from a server that proved who it is */
            printf("logged on; the server says: %s\n", frame.data != NULL ? (const char*)frame.data : "");
            status = kLoggedOn;
        } else if (frame.kind == FRAME_REFUSED) {
            fputs("the server refuses the logon\n", stderr);
            status = kRefused;
        } else {
            fputs("the server does not speak this protocol\n", stderr);
            status = kNoLogon;
        }
        free(frame.data);
        if (status >= 0) {
            return status;
        }
    }
    fputs("the connection to the server broke\n", stderr);
    return kNoLogon;
}

int LogOn(const char* i_pszServer, const SSOChar* i_pszUser, const SSOChar* i_pszPassword, const SSOChar* i_pszSpn) {
    const ParasSeq parameters = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, i_pszSpn, NULL};
    SSOChar* key = NULL;
    void* token = NULL;
    SSOLength length = 0;
    /* Before the connection is made: asking the KDC may take longer than the server waits for a client. */
    const uint32_t code =
        SSOStartLogin(i_pszUser, i_pszPassword, u"" SSO_PROVIDER_SSPI, &parameters, &key, &token, &length);
    int status = kRefused;
    switch (code) {
        case SSO_OK:
        case SSO_CONTINUE: {
            Connection connection;
            status = kNoLogon;
            if (Connect(i_pszServer, kSecondsForLogin, &connection) == 0) {
                status = Exchange(&connection, code, key, token, length);
                Disconnect(&connection);
            }
            break;
        }
        case SSO_DENIED:
            ReportFailure("logon denied", code);
            break;
        default:
            ReportFailure("the login does not begin", code);
            break;
    }
    SSOFreeString(key);
    SSOFreeBuffer(token);
    return status;
}
