/* sso_server: a host that lets Kerberos users log on, several at once, says who they are, and, when there is work to
 * do, does it as the user.
 *
 * The keys of the service come from the machine's Kerberos configuration (KRB5_KTNAME, or the default keytab). The
 * exchange proves who is at the other end at that moment and nothing about what the connection carries later: a real
 * host runs it inside a connection that protects itself.
 */
#include <getopt.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host_net.h"
#include "host_report.h"
#include "host_system.h"
#include "host_text.h"
#include "host_work.h"
#include "morwen/morwenplugin.h"

enum {
    kMostClients = 32,     /* at once; the others wait in the system's queue */
    kSecondsForLogin = 10, /* the accepting side asks no KDC, so this is the client's time alone */
    kMostRounds = 8        /* Kerberos takes two; a peer that never comes to an end is not heard out */
};

static pthread_mutex_t g_Lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_ClientGone = PTHREAD_COND_INITIALIZER;
static unsigned g_nClients = 0; /* guarded by g_Lock */
static bool g_bAskWho = true;   /* set before the first client: whether the user's identifiers are wanted */
static Work g_Work;             /* set before the first client; without a folder no contexts are kept */
static unsigned g_nKeepSeconds; /* how long a context outlives its client */

/* Greets the user. The SIDs are what a server grants rights to: they stay when an account is renamed. */
static void Welcome(const Connection* i_pConnection, const ParasSeq* i_pLogon) {
    if (!g_bAskWho) {
        puts("logged on: somebody");
        SendFrame(i_pConnection, FRAME_WELCOME, "Welcome.", 8);
        return;
    }
    char* user = TextToUtf8(FindValue(i_pLogon, u"" SSO_KEY_USER_SID));
    char* groups = TextToUtf8(FindValue(i_pLogon, u"" SSO_KEY_GROUP_SIDS));
    if (user != NULL && groups != NULL) {
        char line[128];
        printf("logged on: %s, groups %s\n", user, *groups != '\0' ? groups : "(none)");
        const int length = snprintf(line, sizeof(line), "Welcome, %s.", user);
        /* A client that has gone meanwhile misses its greeting, no more. */
        SendFrame(i_pConnection, FRAME_WELCOME, line, length < (int)sizeof(line) ? (uint32_t)length : sizeof(line) - 1);
    }
    free(user);
    free(groups);
}

/* Gives one frame of the client to the plug-in, and the answer to the client. The session key changes with every step.
 */
static uint32_t Step(const Connection* i_pConnection, const Frame* i_pFrame, SSOChar** io_ppszKey) {
    /* Out pointers start as null: the plug-in overwrites what stands in them. */
    void* reply = NULL;
    SSOLength replyLength = 0;
    ParasSeq* logon = NULL;
    SSOChar* key = NULL;
    /* A client that is done sends nothing more; the plug-in closes the login on a null buffer. */
    const uint32_t code = SSOAcceptLogin(u"" SSO_PROVIDER_SSPI, *io_ppszKey, i_pFrame->data, i_pFrame->length, &reply,
                                         &replyLength, g_bAskWho ? &logon : NULL, &key);
    bool sent = true;
    switch (code) {
        case SSO_CONTINUE:
        case SSO_ACCEPTED:
            if (reply != NULL) {
                sent = SendFrame(i_pConnection, FRAME_TOKEN, reply, replyLength) == 0;
            }
            if (code == SSO_ACCEPTED && sent) {
                Welcome(i_pConnection, logon);
            }
            break;
        case SSO_DENIED:
            ReportFailure("logon denied", code);
            break;
        default:
            ReportFailure("logon failed", code);
            break;
    }
    SSOFreeBuffer(reply);
    SSOFreeParameters(logon);
    SSOFreeString(*io_ppszKey);
    *io_ppszKey = key;
    return sent ? code : SSO_ERROR;
}

/* The login is over and its key names the context that the plug-in keeps. */
static void UseContext(const SSOChar* i_pszKey) {
    WorkAs(i_pszKey, &g_Work);
    fflush(stdout);
    AwaitStop((int)g_nKeepSeconds * 1000);
    if (g_nKeepSeconds != 0) {
        printf("the context is %s\n", SSOLookupSecurityContext(i_pszKey) == SSO_OK ? "still good" : "expired");
    }
    if (SSOReleaseSecurityContext(i_pszKey) == SSO_OK) {
        puts("released the context");
    }
}

/* Runs one login. A login that breaks off leaves its session in the plug-in until SSOTermPackage: that bounds what a
 * server can do without, so a server for strangers would end and start the package now and then. */
static void Serve(const Connection* i_pConnection) {
    SSOChar* key = NULL; /* null, like the empty text, begins a login */
    uint32_t code = SSO_CONTINUE;
    for (int round = 0; code == SSO_CONTINUE; ++round) {
        Frame frame = {FRAME_DONE, NULL, 0};
        bool fits = round < kMostRounds && ReceiveFrame(i_pConnection, &frame) == 0;
        const bool token = frame.kind == FRAME_TOKEN && frame.data != NULL;
        const bool done = frame.kind == FRAME_DONE && frame.data == NULL && key != NULL;
        fits = fits && (token || done);
        if (!fits) {
            fputs("a client went away, was too slow, or does not speak this protocol\n", stderr);
        }
        code = fits ? Step(i_pConnection, &frame, &key) : SSO_ERROR;
        free(frame.data);
    }
    if (code != SSO_ACCEPTED) {
        SendFrame(i_pConnection, FRAME_REFUSED, NULL, 0);
    }
    if (code == SSO_ACCEPTED && g_Work.folder != NULL) {
        UseContext(key);
    }
    SSOFreeString(key);
}

static void* ServeOnThread(void* i_pvConnection) {
    Connection* connection = i_pvConnection;
    Serve(connection);
    fflush(stdout);
    Disconnect(connection);
    free(connection);
    pthread_mutex_lock(&g_Lock);
    --g_nClients;
    pthread_cond_signal(&g_ClientGone);
    pthread_mutex_unlock(&g_Lock);
    return NULL;
}

static void AwaitFewerThan(unsigned i_nClients) {
    pthread_mutex_lock(&g_Lock);
    while (g_nClients >= i_nClients) {
        pthread_cond_wait(&g_ClientGone, &g_Lock);
    }
    pthread_mutex_unlock(&g_Lock);
}

static void StartClient(Socket i_Socket) {
    Connection* connection = malloc(sizeof(*connection));
    if (connection == NULL) {
        CloseSocket(i_Socket);
        return;
    }
    Adopt(i_Socket, kSecondsForLogin, connection);
    pthread_mutex_lock(&g_Lock);
    ++g_nClients;
    pthread_mutex_unlock(&g_Lock);
    pthread_t thread;
    if (pthread_create(&thread, NULL, ServeOnThread, connection) == 0) {
        pthread_detach(thread);
        return;
    }
    fputs("no thread for a client\n", stderr);
    pthread_mutex_lock(&g_Lock);
    --g_nClients;
    pthread_mutex_unlock(&g_Lock);
    Disconnect(connection);
    free(connection);
}

/* Accepts clients until a signal asks to stop; a login under way is finished, its deadline bounds that. */
static void Run(Socket i_Listener) {
    while (AwaitClient(i_Listener)) {
        Socket client = NO_SOCKET;
        if (AcceptSocket(i_Listener, &client)) {
            StartClient(client);
            AwaitFewerThan(kMostClients);
        } else if (client != NO_SOCKET) {
            CloseSocket(client);
        }
    }
    CloseSocket(i_Listener);
    AwaitFewerThan(1);
}

/* Under its final name the file is whole: a script may read it as soon as it is there. */
static bool WritePort(const char* i_pszFile, uint16_t i_nPort) {
    char temporary[4096];
    if (snprintf(temporary, sizeof(temporary), "%s.new", i_pszFile) >= (int)sizeof(temporary)) {
        return false;
    }
    FILE* file = fopen(temporary, "wb");
    if (file == NULL) {
        return false;
    }
    const bool written = fprintf(file, "%u\n", (unsigned)i_nPort) > 0;
    return fclose(file) == 0 && written && rename(temporary, i_pszFile) == 0;
}

static void PrintUsage(FILE* i_pFile) {
    fputs(
        "usage: sso_server [--listen ADDRESS] [--port N] [--port-file FILE] [--trace] [--unnamed]\n"
        "                  [--work-in FOLDER [--spn SERVICE/HOST] [--forbidden FILE] [--keep SECONDS]\n"
        "                  [--back HOST:PORT --back-spn SERVICE/HOST]]\n"
        "Listens on 127.0.0.1 and a port of the system's choice unless told otherwise; a signal or Ctrl-C ends it.\n"
        "--unnamed lets users in without asking who they are (not every system can tell a service that). With\n"
        "--work-in it acts as each user for a moment; --spn is its own principal, under which contexts are renewed.\n",
        i_pFile);
}

static int Usage(void) {
    PrintUsage(stderr);
    return 2;
}

int main(int i_nArguments, char** i_ppszArguments) {
    static const struct option kOptions[] = {{"listen", required_argument, NULL, 'l'},
                                             {"port", required_argument, NULL, 'p'},
                                             {"port-file", required_argument, NULL, 'f'},
                                             {"trace", no_argument, NULL, 't'},
                                             {"unnamed", no_argument, NULL, 'u'},
                                             {"work-in", required_argument, NULL, 'w'},
                                             {"spn", required_argument, NULL, 'n'},
                                             {"forbidden", required_argument, NULL, 'd'},
                                             {"keep", required_argument, NULL, 'k'},
                                             {"back", required_argument, NULL, 'b'},
                                             {"back-spn", required_argument, NULL, 'm'},
                                             {"help", no_argument, NULL, 'h'},
                                             {NULL, 0, NULL, 0}};
    const char* address = "127.0.0.1";
    const char* portFile = NULL;
    const char* spn = NULL;
    const char* backSpn = NULL;
    uint16_t port = 0;
    for (int option = 0; (option = getopt_long(i_nArguments, i_ppszArguments, "", kOptions, NULL)) != -1;) {
        char* end = NULL;
        switch (option) {
            case 'l':
                address = optarg;
                break;
            case 'p': {
                const unsigned long number = strtoul(optarg, &end, 10);
                if (*optarg == '\0' || *end != '\0' || number > UINT16_MAX) {
                    return Usage();
                }
                port = (uint16_t)number;
                break;
            }
            case 'f':
                portFile = optarg;
                break;
            case 't':
                StartTrace();
                break;
            case 'h':
                PrintUsage(stdout);
                exit(0);
            case 'u':
                g_bAskWho = false;
                break;
            case 'w':
                g_Work.folder = optarg;
                break;
            case 'n':
                spn = optarg;
                break;
            case 'd':
                g_Work.forbidden = optarg;
                break;
            case 'k':
                g_nKeepSeconds = (unsigned)strtoul(optarg, &end, 10);
                if (*optarg == '\0' || *end != '\0' || g_nKeepSeconds > 86400) {
                    return Usage();
                }
                break;
            case 'b':
                g_Work.back = optarg;
                break;
            case 'm':
                backSpn = optarg;
                break;
            default:
                return Usage();
        }
    }
    if (optind != i_nArguments || (g_Work.back != NULL) != (backSpn != NULL)) {
        return Usage();
    }
    SSOChar* ownSpn = spn != NULL ? TextFromUtf8(spn) : NULL;
    SSOChar* otherSpn = backSpn != NULL ? TextFromUtf8(backSpn) : NULL;
    g_Work.backSpn = otherSpn;

    if (!StartSockets() || !CatchStop()) {
        fputs("there are no sockets or no signals\n", stderr);
        return 2;
    }
    if (SSOInitPackage() != SSO_OK) {
        fputs("the plug-in does not start\n", stderr); /* leaves no record */
        return 2;
    }
    /* A host that never impersonates keeps no contexts. One that does keeps them a day at most, however often they are
     * renewed. */
    ParasSeq renewal = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, ownSpn, NULL};
    ParasSeq expiry = {u"" SSO_KEY_CACHE_EXPIRY, SSO_PARAMETER_LONG, u"86400", ownSpn != NULL ? &renewal : NULL};
    const ParasSeq settings = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, g_Work.folder != NULL ? u"1" : u"0",
                               &expiry};
    const uint32_t code = SSOInitProvider(u"" SSO_PROVIDER_SSPI, &settings);
    int status = 2;
    if (code != SSO_OK) {
        ReportFailure("the provider does not start", code);
    } else {
        const Socket listener = Listen(address, port, &port);
        if (listener != NO_SOCKET && portFile != NULL && !WritePort(portFile, port)) {
            perror(portFile);
            CloseSocket(listener);
        } else if (listener != NO_SOCKET) {
            printf("listening on %s port %u\n", address, (unsigned)port);
            fflush(stdout);
            Run(listener);
            status = 0;
        }
    }
    SSOTermPackage(); /* no thread is inside the plug-in any more: the clients are done */
    free(ownSpn);
    free(otherSpn);
    return status;
}
