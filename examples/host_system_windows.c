/* What the example hosts need of the operating system, where it is Windows. */
#include "host_system.h"

#include <aclapi.h>
#include <io.h>
#include <stdio.h>

static HANDLE g_hStop; /* set from the moment somebody asked to stop */

int64_t Now(void) {
    return (int64_t)GetTickCount64();
}

bool StartSockets(void) {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

static bool MakeNonBlocking(Socket i_Socket) {
    u_long on = 1;
    return ioctlsocket(i_Socket, (long)FIONBIO, &on) == 0;
}

Socket MakeSocket(int i_nFamily) {
    const Socket made =
        WSASocketW(i_nFamily, SOCK_STREAM, 0, NULL, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (made != NO_SOCKET && !MakeNonBlocking(made)) {
        closesocket(made);
        return NO_SOCKET;
    }
    return made;
}

bool AcceptSocket(Socket i_Listener, Socket* o_pClient) {
    *o_pClient = accept(i_Listener, NULL, NULL);
    return *o_pClient != NO_SOCKET && MakeNonBlocking(*o_pClient);
}

void CloseSocket(Socket i_Socket) {
    closesocket(i_Socket);
}

bool OwnAddress(Socket i_Socket) {
    const BOOL on = TRUE; /* the option that has this name on other systems lets strangers take the port over */
    return setsockopt(i_Socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, (const char*)&on, sizeof(on)) == 0;
}

static bool Await(Socket i_Socket, bool i_bWrite, int64_t i_nDeadline) {
    const int64_t left = i_nDeadline - Now();
    struct timeval wait = {.tv_sec = (long)(left / 1000), .tv_usec = (long)(left % 1000 * 1000)};
    fd_set wanted = {.fd_count = 1, .fd_array = {i_Socket}};
    fd_set failed = wanted; /* a connection that is refused shows here only */
    return left > 0 && select(0, i_bWrite ? NULL : &wanted, i_bWrite ? &wanted : NULL, &failed, &wait) > 0;
}

bool AwaitWritable(Socket i_Socket, int64_t i_nDeadline) {
    return Await(i_Socket, true, i_nDeadline);
}

bool AwaitReadable(Socket i_Socket, int64_t i_nDeadline) {
    return Await(i_Socket, false, i_nDeadline);
}

int ConnectSocket(Socket i_Socket, const struct addrinfo* i_pAddress, int64_t i_nDeadline) {
    int error = connect(i_Socket, i_pAddress->ai_addr, (int)i_pAddress->ai_addrlen) == 0 ? 0 : WSAGetLastError();
    int size = sizeof(error);
    if (error == WSAEWOULDBLOCK) {
        error = WSAETIMEDOUT;
        if (AwaitWritable(i_Socket, i_nDeadline)) {
            getsockopt(i_Socket, SOL_SOCKET, SO_ERROR, (char*)&error, &size);
        }
    }
    return error;
}

static ptrdiff_t Moved(int i_nMoved) {
    return i_nMoved >= 0 ? i_nMoved : WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

ptrdiff_t SendSome(Socket i_Socket, const char* i_pBytes, size_t i_nLength) {
    return Moved(send(i_Socket, i_pBytes, (int)i_nLength, 0));
}

ptrdiff_t ReceiveSome(Socket i_Socket, char* o_pBytes, size_t i_nLength) {
    const int received = recv(i_Socket, o_pBytes, (int)i_nLength, 0);
    return received == 0 ? -1 : Moved(received);
}

int SocketError(void) {
    return WSAGetLastError();
}

const char* SocketErrorText(int i_nError) {
    static _Thread_local char t_szText[32];
    snprintf(t_szText, sizeof(t_szText), "error %d", i_nError);
    return t_szText;
}

static BOOL WINAPI Stop(DWORD i_nEvent) {
    (void)i_nEvent;
    return SetEvent(g_hStop);
}

bool CatchStop(void) {
    g_hStop = CreateEventW(NULL, TRUE, FALSE, NULL);
    return g_hStop != NULL && SetConsoleCtrlHandler(Stop, TRUE);
}

bool AwaitStop(int i_nMilliseconds) {
    return WaitForSingleObject(g_hStop, (DWORD)i_nMilliseconds) == WAIT_OBJECT_0;
}

bool AwaitClient(Socket i_Listener) {
    while (!AwaitStop(0)) {
        if (AwaitReadable(i_Listener, Now() + 100)) {
            return true;
        }
    }
    return false;
}

size_t ReadSecretLine(int i_nFd, char* o_pBytes, size_t i_nSize) {
    HANDLE input = INVALID_HANDLE_VALUE;
    if (i_nFd >= 0) {
        input = (HANDLE)_get_osfhandle(i_nFd);
    } else {
        input = CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    }
    DWORD before = 0;
    const bool terminal = GetConsoleMode(input, &before) != 0;
    if (terminal) {
        SetConsoleMode(input, before & ~(DWORD)ENABLE_ECHO_INPUT);
        fputs("Password: ", stderr);
    }
    size_t length = 0;
    DWORD got = 0;
    while (length < i_nSize && ReadFile(input, &o_pBytes[length], 1, &got, NULL) && got == 1 &&
           o_pBytes[length] != '\n') {
        length += o_pBytes[length] != '\r';
    }
    if (terminal) {
        SetConsoleMode(input, before);
        fputc('\n', stderr);
    }
    if (i_nFd < 0 && input != INVALID_HANDLE_VALUE) {
        CloseHandle(input);
    }
    return length;
}

void LockOutput(void) {
    _lock_file(stderr);
}

void UnlockOutput(void) {
    _unlock_file(stderr);
}

static const char* SidName(PSID i_pSid, char* o_pszText, size_t i_nSize) {
    char name[128];
    char domain[128];
    DWORD nameSize = sizeof(name);
    DWORD domainSize = sizeof(domain);
    SID_NAME_USE use;
    if (i_pSid != NULL && LookupAccountSidA(NULL, i_pSid, name, &nameSize, domain, &domainSize, &use)) {
        snprintf(o_pszText, i_nSize, "%s\\%s", domain, name);
    } else {
        snprintf(o_pszText, i_nSize, "unknown");
    }
    return o_pszText;
}

/* Takes the token, which may be null. */
static const char* TokenUserName(HANDLE i_hToken, char* o_pszText, size_t i_nSize) {
    union {
        TOKEN_USER user;
        char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } information;
    DWORD size = 0;
    const bool known =
        i_hToken != NULL && GetTokenInformation(i_hToken, TokenUser, &information, sizeof(information), &size);
    if (i_hToken != NULL) {
        CloseHandle(i_hToken);
    }
    return SidName(known ? information.user.User.Sid : NULL, o_pszText, i_nSize);
}

const char* ThreadUser(char* o_pszText, size_t i_nSize) {
    HANDLE token = NULL;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) {
        return MainThreadUser(o_pszText, i_nSize);
    }
    return TokenUserName(token, o_pszText, i_nSize);
}

const char* MainThreadUser(char* o_pszText,
                           size_t i_nSize) { /* a thread without a token of its own has the process's */
    HANDLE token = NULL;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    return TokenUserName(token, o_pszText, i_nSize);
}

const char* FileOwner(int i_nFd, char* o_pszText, size_t i_nSize) {
    PSID owner = NULL;
    PSECURITY_DESCRIPTOR descriptor = NULL;
    GetSecurityInfo((HANDLE)_get_osfhandle(i_nFd), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, NULL, NULL, NULL,
                    &descriptor);
    SidName(owner, o_pszText, i_nSize);
    LocalFree(descriptor);
    return o_pszText;
}
