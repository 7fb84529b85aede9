/* Work that a server does as the user who has logged on, for the example hosts. */
#ifndef MORWEN_EXAMPLES_HOST_WORK_H
#define MORWEN_EXAMPLES_HOST_WORK_H

#include "morwen/morwenplugin.h"

typedef struct Work {
    const char* folder;     /* where the user's file is written; null: there is no work */
    const char* forbidden;  /* a file that the user is expected not to be able to read; may be null */
    const char* back;       /* "HOST:PORT" of another server to log on to as the user; may be null */
    const SSOChar* backSpn; /* and that server's principal */
} Work;

/* Does the work as the user of the context, prints what came of it, and is the service again afterwards. If that fails,
 * the thread must not go on: the process ends. */
void WorkAs(const SSOChar* i_pszContextKey, const Work* i_pWork);

#endif
