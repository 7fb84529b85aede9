/* gss_server PORT_FILE: one logon in the example hosts' protocol, on the system's GSS-API in the plug-in's place. */
#include <gssapi/gssapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "examples/host_net.h"

int main(int i_nArguments, char** i_ppszArguments) {
    OM_uint32 minor = 0, major = GSS_S_CONTINUE_NEEDED, flags = 0;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    gss_name_t client = GSS_C_NO_NAME;
    gss_buffer_desc name = GSS_C_EMPTY_BUFFER;
    uint16_t port = 0;
    Connection connection;
    Frame frame;
    const Socket listener = Listen("127.0.0.1", 0, &port);
    FILE* file = i_nArguments == 2 ? fopen(i_ppszArguments[1], "w") : NULL;
    if (file == NULL || fprintf(file, "%u\n", (unsigned)port) < 0 || fclose(file) != 0 || !CatchStop() ||
        !AwaitClient(listener) || !AcceptSocket(listener, &connection.socket)) {
        return 2;
    }
    for (Adopt(connection.socket, 30, &connection); ReceiveFrame(&connection, &frame) == 0; free(frame.data)) {
        if (frame.kind != FRAME_TOKEN || major != GSS_S_CONTINUE_NEEDED) {
            break; /* the client is done */
        }
        gss_buffer_desc input = {frame.length, frame.data}, answer = GSS_C_EMPTY_BUFFER;
        major = gss_accept_sec_context(&minor, &context, GSS_C_NO_CREDENTIAL, &input, GSS_C_NO_CHANNEL_BINDINGS,
                                       &client, NULL, &answer, &flags, NULL, NULL);
        SendFrame(&connection, FRAME_TOKEN, answer.value, (uint32_t)answer.length);
    }
    gss_display_name(&minor, client, &name, NULL);
    printf("%.*s%s\n", (int)name.length, (const char*)name.value, (flags & GSS_C_DELEG_FLAG) != 0 ? " delegating" : "");
    return SendFrame(&connection, FRAME_WELCOME, name.value, (uint32_t)name.length) == 0 ? 0 : 1;
}
