/* Sockets and frames for the example hosts. Everything of the example hosts that knows sockets is behind this header.
 */
#ifndef MORWEN_EXAMPLES_HOST_NET_H
#define MORWEN_EXAMPLES_HOST_NET_H

#include <stdint.h>

#include "host_system.h"

/* What a frame says. On the wire: length of what follows (four bytes, the highest first), one byte kind, the data. */
enum FrameKind {
    FRAME_TOKEN = 't',   /* a token for the other side */
    FRAME_DONE = 'd',    /* client: my side is complete, nothing more will come */
    FRAME_WELCOME = 'w', /* server: logged on; one line of text */
    FRAME_REFUSED = 'r'  /* server: not logged on; never says why, a stranger has no use for it */
};

/* A connected peer. Everything that is awaited from it is awaited until the deadline, however slowly it sends. */
typedef struct Connection {
    Socket socket;
    int64_t deadline; /* as Now counts */
} Connection;

/* A received frame. The data goes back through free. */
typedef struct Frame {
    enum FrameKind kind;
    void* data; /* null when the frame is empty; one zero byte stands behind the data */
    uint32_t length;
} Frame;

/* Listens on a numeric address; port 0 lets the system choose. Returns the socket, or NO_SOCKET after saying why. */
Socket Listen(const char* i_pszAddress, uint16_t i_nPort, uint16_t* o_pnPort);

/* Connects to "HOST:PORT". Returns 0, or -1 after saying why. */
int Connect(const char* i_pszServer, int i_nSeconds, Connection* o_pConnection);

/* Takes a socket over. */
void Adopt(Socket i_Socket, int i_nSeconds, Connection* o_pConnection);

void Disconnect(Connection* io_pConnection);

/* Both return 0, or -1 when the peer is gone, too slow or does not speak frames. A failed Receive hands out nothing. */
int SendFrame(const Connection* i_pConnection, enum FrameKind i_Kind, const void* i_pvData, uint32_t i_nLength);
int ReceiveFrame(const Connection* i_pConnection, Frame* o_pFrame);

#endif
