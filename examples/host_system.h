/* What the example hosts need of the operating system beyond the C library; nothing else of theirs depends on it. */
#ifndef MORWEN_EXAMPLES_HOST_SYSTEM_H
#define MORWEN_EXAMPLES_HOST_SYSTEM_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
typedef SOCKET Socket;
#else
#include <netdb.h>
#include <sys/socket.h>
typedef int Socket;
#endif
#define NO_SOCKET ((Socket)-1)

/* Milliseconds of a clock that nobody sets. */
int64_t Now(void);

/* To be called once, before any socket is made. */
bool StartSockets(void);
/* A stream socket that does not block and that no other program inherits; NO_SOCKET when there is none. */
Socket MakeSocket(int i_nFamily);
bool AcceptSocket(Socket i_Listener, Socket* o_pClient);
void CloseSocket(Socket i_Socket);
/* Connects until the deadline. Returns 0 or the system's error. */
int ConnectSocket(Socket i_Socket, const struct addrinfo* i_pAddress, int64_t i_nDeadline);
/* Lets the address be used again after a restart, and by nobody else meanwhile. */
bool OwnAddress(Socket i_Socket);
bool AwaitWritable(Socket i_Socket, int64_t i_nDeadline);
bool AwaitReadable(Socket i_Socket, int64_t i_nDeadline);
/* The bytes moved; 0 when none could be moved just now, -1 when the peer is gone. */
ptrdiff_t SendSome(Socket i_Socket, const char* i_pBytes, size_t i_nLength);
ptrdiff_t ReceiveSome(Socket i_Socket, char* o_pBytes, size_t i_nLength);
/* The error of the socket call that failed last on this thread, and what it means. */
int SocketError(void);
const char* SocketErrorText(int i_nError);

/* From here on a request to end the program (a signal, Ctrl-C) is not its end. */
bool CatchStop(void);
/* Waits for that request, for so many milliseconds at most. */
bool AwaitStop(int i_nMilliseconds);
/* Waits for a client; false when the program is to end. */
bool AwaitClient(Socket i_Listener);

/* Reads one line, without echo from the terminal if the descriptor is -1. Returns its length, i_nSize at most. */
size_t ReadSecretLine(int i_nFd, char* o_pBytes, size_t i_nSize);

/* One thread's lines on standard error stay together. */
void LockOutput(void);
void UnlockOutput(void);

/* Who the calling thread, the main thread, and the owner of an open file are, for example "uid 1000". */
const char* ThreadUser(char* o_pszText, size_t i_nSize);
const char* MainThreadUser(char* o_pszText, size_t i_nSize);
const char* FileOwner(int i_nFd, char* o_pszText, size_t i_nSize);

#endif
