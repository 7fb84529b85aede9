/* Work that a server does as the user who has logged on, for the example hosts. */
#include "host_work.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "host_login.h"
#include "host_report.h"
#include "host_system.h"

static void MakeFile(const char* i_pszFolder) {
    char path[4096];
    char owner[256];
    if (snprintf(path, sizeof(path), "%s/made-by-user.XXXXXX", i_pszFolder) >= (int)sizeof(path)) {
        return;
    }
    const int fd = mkstemp(path);
    if (fd < 0) {
        printf("as the user: cannot write in %s: %s\n", i_pszFolder, strerror(errno));
        return;
    }
    printf("as the user: wrote %s, which belongs to %s\n", path, FileOwner(fd, owner, sizeof(owner)));
    close(fd);
}

static void ReadForbidden(const char* i_pszFile) {
    /* fopen asks by the effective user, as nearly everything does; access(2) would ask by the service's. */
    FILE* file = fopen(i_pszFile, "rb");
    if (file != NULL) {
        printf("as the user: can read %s\n", i_pszFile);
        fclose(file);
    } else {
        printf("as the user: may not read %s: %s\n", i_pszFile, strerror(errno));
    }
}

void WorkAs(const SSOChar* i_pszContextKey, const Work* i_pWork) {
    char own[256];
    char process[256];
    uint32_t code = SSOImpersonate(i_pszContextKey);
    if (code != SSO_OK) {
        ReportFailure("cannot act as the user", code); /* and the thread is the service, as before */
        return;
    }
    printf("as the user: this thread is %s, the main thread is still %s\n", ThreadUser(own, sizeof(own)),
           MainThreadUser(process, sizeof(process)));
    MakeFile(i_pWork->folder);
    if (i_pWork->forbidden != NULL) {
        ReadForbidden(i_pWork->forbidden);
    }
    if (i_pWork->back != NULL) {
        puts("as the user: logging on to the server behind");
        if (LogOn(i_pWork->back, NULL, NULL, i_pWork->backSpn) != kLoggedOn) {
            puts("as the user: not let in there");
        }
    }
    code = SSORevert(i_pszContextKey);
    if (code != SSO_OK) {
        ReportFailure("cannot become the service again", code);
        abort(); /* whatever this thread did next, it would do with a stranger's rights */
    }
    printf("the service again: this thread is %s\n", ThreadUser(own, sizeof(own)));
}
