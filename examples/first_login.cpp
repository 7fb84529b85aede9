// A first login: both halves in one process, then work as the user. The tokens that go from hand to hand here travel
// over the program's own connection in real life.
//
// usage: first_login SERVICE/HOST, with a ticket of the user and the service's keytab at hand
#include <cstdio>
#include <exception>

#include "morwen/host.hpp"

namespace host = morwen::host;

int main(int i_nArguments, char* i_ppszArguments[]) {
    if (i_nArguments != 2) {
        std::fprintf(stderr, "usage: first_login SERVICE/HOST\n");
        return 2;
    }
    try {
        host::Package package;           // once, before everything else
        package.Use(SSO_PROVIDER_SSPI);  // contexts are kept unless a setting says otherwise

        host::ClientLogin client(i_ppszArguments[1]);  // in the client: the logged-on user's own ticket
        host::ServerLogin server;                      // in the server: one for each connection
        while (!client.IsDone()) {
            client.Continue(server.Accept(client.NextToken()));
        }
        server.Close();

        const host::LogonInformation& user = server.Information();
        std::printf("logged on: %s, in %zu groups\n", user.m_userSid.c_str(), user.m_groupSids.size());

        const host::Context context = server.TakeContext();  // ends the context when it goes
        try {
            const host::Impersonation asUser = context.Impersonate();
            std::printf("this thread acts as the user\n");
        } catch (const host::Error& error) {  // the user has no account here, or the service has not the right
            std::printf("no impersonation: %s\n", error.what());
        }
        return 0;
    } catch (const host::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return error.IsDenied() ? 1 : 2;
    } catch (const std::exception& error) {  // a name that is not UTF-8, or no memory
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
