/* The client's half of a login, for the example hosts. */
#ifndef MORWEN_EXAMPLES_HOST_LOGIN_H
#define MORWEN_EXAMPLES_HOST_LOGIN_H

#include "morwen/morwenplugin.h"

/* How a login ends; also the client program's exit status. */
enum { kLoggedOn = 0, kRefused = 1, kNoLogon = 2 };

/* Logs on to an sso_server ("HOST:PORT") and prints what it says. An empty user name means the calling thread's user:
 * on a thread that impersonates, that is the impersonated one. */
int LogOn(const char* i_pszServer, const SSOChar* i_pszUser, const SSOChar* i_pszPassword, const SSOChar* i_pszSpn);

#endif
