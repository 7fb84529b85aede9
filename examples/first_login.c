/* A first login in C: both halves in one process, then work as the user. The tokens that go from hand to hand here
 * travel over the program's own connection in real life.
 *
 * usage: first_login_c SERVICE/HOST, with a ticket of the user and the service's keytab at hand
 */
#include <stdio.h>
#include <stdlib.h>

#include "host_report.h"
#include "host_text.h"
#include "morwen/morwenplugin.h"

/* What one step gives: a key that names the login until the next step, and a token for the other side. Out pointers
 * start as null, because the plug-in overwrites what stands in them. */
typedef struct Step {
    uint32_t code;
    SSOChar* key;
    void* token;
    SSOLength length;
} Step;

static void Free(Step* io_pStep) {
    SSOFreeString(io_pStep->key);
    SSOFreeBuffer(io_pStep->token);
}

/* The server: who is it? Takes the client's token, or none for the end. The key changes with every step. */
static void Accept(Step* io_pServer, const void* i_pvToken, SSOLength i_nLength, ParasSeq** o_ppUser) {
    Step next = {SSO_ERROR, NULL, NULL, 0};
    next.code = SSOAcceptLogin(u"" SSO_PROVIDER_SSPI, io_pServer->key, i_pvToken, i_nLength, &next.token, &next.length,
                               o_ppUser, &next.key);
    Free(io_pServer);
    *io_pServer = next;
}

/* The client: is it the server that was meant? Its key stays until the end. */
static void Continue(Step* io_pClient, const Step* i_pServer) {
    SSOFreeBuffer(io_pClient->token);
    io_pClient->token = NULL;
    io_pClient->code =
        SSOContinueLogin(io_pClient->key, i_pServer->token, i_pServer->length, &io_pClient->token, &io_pClient->length);
}

static void WorkAsUser(const SSOChar* i_pszContextKey) {
    uint32_t code = SSOImpersonate(i_pszContextKey);
    if (code != SSO_OK) { /* the user has no account here, or the service has not the right; the thread is itself */
        ReportFailure("no impersonation", code);
        return;
    }
    puts("this thread acts as the user");
    code = SSORevert(i_pszContextKey);
    if (code != SSO_OK) {
        ReportFailure("cannot become the service again", code);
        abort(); /* whatever this thread did next, it would do with the user's rights */
    }
}

/* With the tickets of whoever runs this: neither name nor password. */
static uint32_t LogOn(const SSOChar* i_pszSpn) {
    const ParasSeq parameters = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, i_pszSpn, NULL};
    Step client = {SSO_ERROR, NULL, NULL, 0};
    Step server = {SSO_CONTINUE, NULL, NULL, 0};
    ParasSeq* user = NULL;
    client.code =
        SSOStartLogin(NULL, NULL, u"" SSO_PROVIDER_SSPI, &parameters, &client.key, &client.token, &client.length);
    while (client.code == SSO_CONTINUE && server.code == SSO_CONTINUE) {
        Accept(&server, client.token, client.length, NULL);
        if (server.code == SSO_CONTINUE) {
            Continue(&client, &server);
        }
    }
    if (client.code == SSO_OK && server.code == SSO_CONTINUE) { /* both are sure of each other; who is it? */
        Accept(&server, NULL, 0, &user);
    }
    const uint32_t code = server.code == SSO_CONTINUE ? client.code : server.code;
    if (code == SSO_ACCEPTED) {
        char* sid = TextToUtf8(FindValue(user, u"" SSO_KEY_USER_SID));
        printf("logged on: %s\n", sid != NULL ? sid : "?");
        free(sid);
        WorkAsUser(server.key); /* the last key names the user's context */
        SSOReleaseSecurityContext(server.key);
    } else {
        ReportFailure("not logged on", code);
    }
    SSOFreeParameters(user);
    Free(&client);
    Free(&server);
    return code;
}

int main(int i_nArguments, char** i_ppszArguments) {
    if (i_nArguments != 2) {
        fputs("usage: first_login_c SERVICE/HOST\n", stderr);
        return 2;
    }
    SSOChar* spn = TextFromUtf8(i_ppszArguments[1]);
    uint32_t code = SSOInitPackage(); /* once, before everything else; leaves no record when it fails */
    if (code == SSO_OK) {
        code = SSOInitProvider(u"" SSO_PROVIDER_SSPI, NULL);
        if (code == SSO_OK) {
            code = LogOn(spn);
        } else {
            ReportFailure("the provider does not start", code);
        }
        SSOTermPackage();
    }
    free(spn);
    return code == SSO_ACCEPTED ? 0 : code == SSO_DENIED ? 1 : 2;
}
