/* Sockets and length-prefixed frames for the example hosts. */
#include "host_net.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A token with a forwarded ticket that carries many groups takes some ten thousand bytes. What a stranger claims to
 * send must not decide how much memory is taken. */
enum { kLargestFrame = 256 * 1024 };

Socket Listen(const char* i_pszAddress, uint16_t i_nPort, uint16_t* o_pnPort) {
    char port[8];
    snprintf(port, sizeof(port), "%u", (unsigned)i_nPort);
    const struct addrinfo hints = {.ai_flags = AI_NUMERICHOST | AI_PASSIVE, .ai_socktype = SOCK_STREAM};
    struct addrinfo* address = NULL;
    const int found = getaddrinfo(i_pszAddress, port, &hints, &address);
    if (found != 0) {
        fprintf(stderr, "%s: %s\n", i_pszAddress, gai_strerror(found));
        return NO_SOCKET;
    }
    struct sockaddr_storage bound;
    socklen_t length = sizeof(bound);
    const Socket listener = MakeSocket(address->ai_family);
    if (listener == NO_SOCKET || !OwnAddress(listener) ||
        bind(listener, address->ai_addr, (socklen_t)address->ai_addrlen) != 0 || listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, (struct sockaddr*)&bound, &length) != 0) {
        fprintf(stderr, "cannot listen on %s port %s: %s\n", i_pszAddress, port, SocketErrorText(SocketError()));
        if (listener != NO_SOCKET) {
            CloseSocket(listener);
        }
        freeaddrinfo(address);
        return NO_SOCKET;
    }
    freeaddrinfo(address);
    *o_pnPort = ntohs(bound.ss_family == AF_INET6 ? ((const struct sockaddr_in6*)&bound)->sin6_port
                                                  : ((const struct sockaddr_in*)&bound)->sin_port);
    return listener;
}

int Connect(const char* i_pszServer, int i_nSeconds, Connection* o_pConnection) {
    char host[256];
    const char* colon = strrchr(i_pszServer, ':');
    const size_t length = colon != NULL ? (size_t)(colon - i_pszServer) : 0;
    if (length == 0 || length >= sizeof(host)) {
        fprintf(stderr, "%s: expected HOST:PORT\n", i_pszServer);
        return -1;
    }
    memcpy(host, i_pszServer, length);
    host[length] = '\0';
    const struct addrinfo hints = {.ai_socktype = SOCK_STREAM};
    struct addrinfo* addresses = NULL;
    const int found = getaddrinfo(host, colon + 1, &hints, &addresses);
    if (found != 0) {
        fprintf(stderr, "%s: %s\n", i_pszServer, gai_strerror(found));
        return -1;
    }
    int error = 0;
    for (const struct addrinfo* address = addresses; address != NULL; address = address->ai_next) {
        Adopt(MakeSocket(address->ai_family), i_nSeconds, o_pConnection);
        error = SocketError();
        if (o_pConnection->socket == NO_SOCKET) {
            continue;
        }
        error = ConnectSocket(o_pConnection->socket, address, o_pConnection->deadline);
        if (error == 0) {
            freeaddrinfo(addresses);
            return 0;
        }
        Disconnect(o_pConnection);
    }
    freeaddrinfo(addresses);
    fprintf(stderr, "%s: %s\n", i_pszServer, SocketErrorText(error));
    return -1;
}

void Adopt(Socket i_Socket, int i_nSeconds, Connection* o_pConnection) {
    o_pConnection->socket = i_Socket;
    o_pConnection->deadline = Now() + (int64_t)i_nSeconds * 1000;
}

void Disconnect(Connection* io_pConnection) {
    CloseSocket(io_pConnection->socket);
    io_pConnection->socket = NO_SOCKET;
}

static bool SendAll(const Connection* i_pConnection, const void* i_pvData, size_t i_nLength) {
    const char* next = i_pvData;
    while (i_nLength > 0 && AwaitWritable(i_pConnection->socket, i_pConnection->deadline)) {
        const ptrdiff_t sent = SendSome(i_pConnection->socket, next, i_nLength);
        if (sent < 0) {
            return false;
        }
        next += sent;
        i_nLength -= (size_t)sent;
    }
    return i_nLength == 0;
}

static bool ReceiveAll(const Connection* i_pConnection, void* o_pvData, size_t i_nLength) {
    char* next = o_pvData;
    while (i_nLength > 0 && AwaitReadable(i_pConnection->socket, i_pConnection->deadline)) {
        const ptrdiff_t received = ReceiveSome(i_pConnection->socket, next, i_nLength);
        if (received < 0) {
            return false;
        }
        next += received;
        i_nLength -= (size_t)received;
    }
    return i_nLength == 0;
}

int SendFrame(const Connection* i_pConnection, enum FrameKind i_Kind, const void* i_pvData, uint32_t i_nLength) {
    if (i_nLength >= kLargestFrame) {
        return -1;
    }
    const uint32_t length = i_nLength + 1;
    const unsigned char head[] = {(unsigned char)(length >> 24), (unsigned char)(length >> 16),
                                  (unsigned char)(length >> 8), (unsigned char)length, (unsigned char)i_Kind};
    return SendAll(i_pConnection, head, sizeof(head)) && SendAll(i_pConnection, i_pvData, i_nLength) ? 0 : -1;
}

int ReceiveFrame(const Connection* i_pConnection, Frame* o_pFrame) {
    unsigned char head[5];
    if (!ReceiveAll(i_pConnection, head, sizeof(head))) {
        return -1;
    }
    const uint32_t length = (uint32_t)head[0] << 24 | (uint32_t)head[1] << 16 | (uint32_t)head[2] << 8 | head[3];
    if (length == 0 || length > kLargestFrame) {
        return -1;
    }
    o_pFrame->kind = (enum FrameKind)head[4];
    o_pFrame->length = length - 1;
    o_pFrame->data = NULL;
    if (o_pFrame->length == 0) {
        return 0;
    }
    char* data = malloc((size_t)o_pFrame->length + 1);
    if (data == NULL || !ReceiveAll(i_pConnection, data, o_pFrame->length)) {
        free(data);
        return -1;
    }
    data[o_pFrame->length] = '\0';
    o_pFrame->data = data;
    return 0;
}
