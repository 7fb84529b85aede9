/* What the example hosts need of the operating system, where it is Linux or another POSIX. */
#include "host_system.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

static int g_anStopPipe[2]; /* readable from the moment a signal asked to stop */

int64_t Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

bool StartSockets(void) {
    return true;
}

static bool MakeNonBlocking(Socket i_Socket) {
    return fcntl(i_Socket, F_SETFL, fcntl(i_Socket, F_GETFL) | O_NONBLOCK) == 0;
}

Socket MakeSocket(int i_nFamily) {
    return socket(i_nFamily, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

bool AcceptSocket(Socket i_Listener, Socket* o_pClient) {
    *o_pClient = accept(i_Listener, NULL, NULL);
    return *o_pClient >= 0 && MakeNonBlocking(*o_pClient);
}

void CloseSocket(Socket i_Socket) {
    close(i_Socket);
}

bool OwnAddress(Socket i_Socket) {
    const int on = 1;
    return setsockopt(i_Socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0;
}

static bool Await(Socket i_Socket, short i_nEvents, int64_t i_nDeadline) {
    for (;;) {
        const int64_t left = i_nDeadline - Now();
        struct pollfd wait = {.fd = i_Socket, .events = i_nEvents};
        const int ready = left > 0 ? poll(&wait, 1, (int)left) : 0;
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

bool AwaitWritable(Socket i_Socket, int64_t i_nDeadline) {
    return Await(i_Socket, POLLOUT, i_nDeadline);
}

bool AwaitReadable(Socket i_Socket, int64_t i_nDeadline) {
    return Await(i_Socket, POLLIN, i_nDeadline);
}

int ConnectSocket(Socket i_Socket, const struct addrinfo* i_pAddress, int64_t i_nDeadline) {
    int error = connect(i_Socket, i_pAddress->ai_addr, i_pAddress->ai_addrlen) == 0 ? 0 : errno;
    socklen_t size = sizeof(error);
    if (error == EINPROGRESS) {
        error = ETIMEDOUT;
        if (AwaitWritable(i_Socket, i_nDeadline)) {
            getsockopt(i_Socket, SOL_SOCKET, SO_ERROR, &error, &size);
        }
    }
    return error;
}

static ptrdiff_t Moved(ssize_t i_nMoved) {
    return i_nMoved >= 0 ? i_nMoved : errno == EAGAIN || errno == EINTR ? 0 : -1;
}

ptrdiff_t SendSome(Socket i_Socket, const char* i_pBytes, size_t i_nLength) {
    return Moved(send(i_Socket, i_pBytes, i_nLength, MSG_NOSIGNAL));
}

ptrdiff_t ReceiveSome(Socket i_Socket, char* o_pBytes, size_t i_nLength) {
    const ssize_t received = recv(i_Socket, o_pBytes, i_nLength, 0);
    return received == 0 ? -1 : Moved(received);
}

int SocketError(void) {
    return errno;
}

const char* SocketErrorText(int i_nError) {
    return strerror(i_nError);
}

static void Stop(int i_nSignal) {
    (void)i_nSignal;
    const int saved = errno;
    /* A full pipe is as readable as one byte. */
    const ssize_t ignored = write(g_anStopPipe[1], "", 1);
    (void)ignored;
    errno = saved;
}

bool CatchStop(void) {
    const struct sigaction stop = {.sa_handler = Stop};
    return pipe(g_anStopPipe) == 0 && sigaction(SIGTERM, &stop, NULL) == 0 && sigaction(SIGINT, &stop, NULL) == 0;
}

bool AwaitStop(int i_nMilliseconds) {
    struct pollfd stop = {.fd = g_anStopPipe[0], .events = POLLIN};
    return poll(&stop, 1, i_nMilliseconds) > 0;
}

bool AwaitClient(Socket i_Listener) {
    struct pollfd wait[] = {{.fd = i_Listener, .events = POLLIN}, {.fd = g_anStopPipe[0], .events = POLLIN}};
    while (poll(wait, 2, -1) > 0 || errno == EINTR) {
        if (wait[1].revents != 0) {
            return false;
        }
        if (wait[0].revents != 0) {
            return true;
        }
    }
    return false;
}

size_t ReadSecretLine(int i_nFd, char* o_pBytes, size_t i_nSize) {
    struct termios before;
    const int fd = i_nFd >= 0 ? i_nFd : open("/dev/tty", O_RDWR | O_CLOEXEC);
    const bool terminal = fd >= 0 && tcgetattr(fd, &before) == 0;
    if (terminal) {
        struct termios silent = before;
        silent.c_lflag &= ~(tcflag_t)ECHO;
        tcsetattr(fd, TCSAFLUSH, &silent);
        fputs("Password: ", stderr);
    }
    size_t length = 0;
    while (fd >= 0 && length < i_nSize && read(fd, &o_pBytes[length], 1) == 1 && o_pBytes[length] != '\n') {
        ++length;
    }
    if (terminal) {
        tcsetattr(fd, TCSAFLUSH, &before);
        fputc('\n', stderr);
    }
    if (fd >= 0 && i_nFd < 0) {
        close(fd);
    }
    return length;
}

void LockOutput(void) {
    flockfile(stderr);
}

void UnlockOutput(void) {
    funlockfile(stderr);
}

const char* ThreadUser(char* o_pszText, size_t i_nSize) {
    snprintf(o_pszText, i_nSize, "uid %ld", (long)geteuid());
    return o_pszText;
}

const char* MainThreadUser(char* o_pszText, size_t i_nSize) {
    char line[256];
    FILE* status = fopen("/proc/self/status", "r");
    snprintf(o_pszText, i_nSize, "unknown");
    while (status != NULL && fgets(line, sizeof(line), status) != NULL) {
        if (strncmp(line, "Uid:", 4) == 0) {
            char* effective = NULL;
            (void)strtol(line + 4, &effective, 10); /* the real one comes first */
            snprintf(o_pszText, i_nSize, "uid %ld", strtol(effective, NULL, 10));
            break;
        }
    }
    if (status != NULL) {
        fclose(status);
    }
    return o_pszText;
}

const char* FileOwner(int i_nFd, char* o_pszText, size_t i_nSize) {
    struct stat file;
    if (fstat(i_nFd, &file) == 0) {
        snprintf(o_pszText, i_nSize, "uid %ld", (long)file.st_uid);
    } else {
        snprintf(o_pszText, i_nSize, "unknown");
    }
    return o_pszText;
}
