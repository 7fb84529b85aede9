/* sso_client: logs the user on to an sso_server, with the user's own tickets or with a name and a password.
 *
 * Exit status: 0 logged on, 1 refused by either side, 2 usage, connection, or the plug-in does not start.
 */
#include <fcntl.h>
#include <getopt.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "host_net.h"
#include "host_report.h"
#include "host_text.h"
#include "morwen/morwenplugin.h"

enum { kLoggedOn = 0, kRefused = 1, kNoLogon = 2, kSecondsForLogin = 30, kLongestPassword = 1024 };

typedef struct Options {
    const char* server;
    const char* spn;
    const char* user; /* null: the logged-on user's own tickets */
    int passwordFd;   /* -1: ask on the terminal */
} Options;

/* Reads one line without echo or from a descriptor. Never from the command line or the environment: others can see
 * those. Null when there is none; else goes back through WipeText. */
static SSOChar* ReadPassword(int i_nFd) {
    char bytes[kLongestPassword];
    struct termios before;
    struct termios silent;
    const int fd = i_nFd >= 0 ? i_nFd : open("/dev/tty", O_RDWR | O_CLOEXEC);
    const bool terminal = fd >= 0 && tcgetattr(fd, &before) == 0;
    if (terminal) {
        silent = before;
        silent.c_lflag &= ~(tcflag_t)ECHO;
        tcsetattr(fd, TCSAFLUSH, &silent);
        fputs("Password: ", stderr);
    }
    size_t length = 0;
    while (fd >= 0 && length < sizeof(bytes) && read(fd, &bytes[length], 1) == 1 && bytes[length] != '\n') {
        ++length;
    }
    if (terminal) {
        tcsetattr(fd, TCSAFLUSH, &before);
        fputc('\n', stderr);
    }
    if (fd >= 0 && i_nFd < 0) {
        close(fd);
    }
    SSOChar* password = NULL;
    if (length > 0 && length < sizeof(bytes)) {
        bytes[length] = '\0';
        password = TextFromUtf8(bytes);
    }
    WipeBytes(bytes, sizeof(bytes));
    return password;
}

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

static int LogOn(const Options* i_pOptions, const SSOChar* i_pszUser, const SSOChar* i_pszPassword,
                 const SSOChar* i_pszSpn) {
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
            if (Connect(i_pOptions->server, kSecondsForLogin, &connection) == 0) {
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

static int Usage(void) {
    fputs(
        "usage: sso_client --server HOST:PORT --spn SERVICE/HOST [--user 'DOMAIN\\USER' [--password-fd N]] [--trace]\n"
        "Without --user: with the tickets of the logged-on user. The password is read from descriptor N or asked "
        "for.\n",
        stderr);
    return kNoLogon;
}

static bool ParseOptions(int i_nArguments, char** i_ppszArguments, Options* o_pOptions) {
    static const struct option kOptions[] = {
        {"server", required_argument, NULL, 's'}, {"spn", required_argument, NULL, 'n'},
        {"user", required_argument, NULL, 'u'},   {"password-fd", required_argument, NULL, 'p'},
        {"trace", no_argument, NULL, 't'},        {NULL, 0, NULL, 0}};
    for (int option = 0; (option = getopt_long(i_nArguments, i_ppszArguments, "", kOptions, NULL)) != -1;) {
        char* end = NULL;
        switch (option) {
            case 's':
                o_pOptions->server = optarg;
                break;
            case 'n':
                o_pOptions->spn = optarg;
                break;
            case 'u':
                o_pOptions->user = optarg;
                break;
            case 'p': {
                const long fd = strtol(optarg, &end, 10);
                if (*optarg == '\0' || *end != '\0' || fd < 0 || fd > 1023) {
                    return false;
                }
                o_pOptions->passwordFd = (int)fd;
                break;
            }
            case 't':
                StartTrace();
                break;
            default:
                return false;
        }
    }
    const bool needless = o_pOptions->user == NULL && o_pOptions->passwordFd >= 0;
    return optind == i_nArguments && o_pOptions->server != NULL && o_pOptions->spn != NULL && !needless;
}

int main(int i_nArguments, char** i_ppszArguments) {
    Options options = {NULL, NULL, NULL, -1};
    if (!ParseOptions(i_nArguments, i_ppszArguments, &options)) {
        return Usage();
    }
    SSOChar* user = options.user != NULL ? TextFromUtf8(options.user) : NULL;
    SSOChar* password = options.user != NULL ? ReadPassword(options.passwordFd) : NULL;
    SSOChar* spn = TextFromUtf8(options.spn);
    int status = kNoLogon;
    if (spn == NULL || (options.user != NULL && (user == NULL || password == NULL))) {
        fputs("the name is not UTF-8, or there is no password\n", stderr);
    } else if (SSOInitPackage() != SSO_OK) {
        fputs("the plug-in does not start\n", stderr); /* leaves no record */
    } else {
        /* A client keeps no contexts. */
        const ParasSeq settings = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"0", NULL};
        const uint32_t code = SSOInitProvider(u"" SSO_PROVIDER_SSPI, &settings);
        if (code == SSO_OK) {
            status = LogOn(&options, user, password, spn);
        } else {
            ReportFailure("the provider does not start", code);
        }
        SSOTermPackage();
    }
    WipeText(password);
    free(user);
    free(spn);
    return status;
}
