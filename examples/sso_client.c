/* sso_client: logs the user on to an sso_server, with the user's own tickets or with a name and a password.
 *
 * Exit status: 0 logged on, 1 refused by either side, 2 usage, connection, or the plug-in does not start.
 */
#include <getopt.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host_login.h"
#include "host_report.h"
#include "host_system.h"
#include "host_text.h"
#include "morwen/morwenplugin.h"

enum { kLongestPassword = 1024 };

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
    const size_t length = ReadSecretLine(i_nFd, bytes, sizeof(bytes));
    SSOChar* password = NULL;
    if (length > 0 && length < sizeof(bytes)) {
        bytes[length] = '\0';
        password = TextFromUtf8(bytes);
    }
    WipeBytes(bytes, sizeof(bytes));
    return password;
}

static void PrintUsage(FILE* i_pFile) {
    fputs(
        "usage: sso_client --server HOST:PORT --spn SERVICE/HOST [--user 'DOMAIN\\USER' [--password-fd N]] [--trace]\n"
        "Without --user: with the tickets of the logged-on user. The password is read from descriptor N or asked "
        "for.\n",
        i_pFile);
}

static int Usage(void) {
    PrintUsage(stderr);
    return kNoLogon;
}

static bool ParseOptions(int i_nArguments, char** i_ppszArguments, Options* o_pOptions) {
    static const struct option kOptions[] = {{"server", required_argument, NULL, 's'},
                                             {"spn", required_argument, NULL, 'n'},
                                             {"user", required_argument, NULL, 'u'},
                                             {"password-fd", required_argument, NULL, 'p'},
                                             {"trace", no_argument, NULL, 't'},
                                             {"help", no_argument, NULL, 'h'},
                                             {NULL, 0, NULL, 0}};
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
            case 'h':
                PrintUsage(stdout);
                exit(0);
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
    } else if (!StartSockets()) {
        fputs("there are no sockets\n", stderr);
    } else if (SSOInitPackage() != SSO_OK) {
        fputs("the plug-in does not start\n", stderr); /* leaves no record */
    } else {
        /* A client keeps no contexts. */
        const ParasSeq settings = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"0", NULL};
        const uint32_t code = SSOInitProvider(u"" SSO_PROVIDER_SSPI, &settings);
        if (code == SSO_OK) {
            status = LogOn(options.server, user, password, spn);
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
