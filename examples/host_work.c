/* Work that a server does as the user who has logged on, for the example hosts. */
#include "host_work.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host_login.h"
#include "host_report.h"

/* The main thread's effective user as the kernel tells it: it must not have changed. */
static long MainThreadUser(void) {
    char line[256];
    long user = -1;
    FILE* status = fopen("/proc/self/status", "r");
    while (status != NULL && fgets(line, sizeof(line), status) != NULL) {
        if (strncmp(line, "Uid:", 4) == 0) {
            char* effective = NULL;
            (void)strtol(line + 4, &effective, 10); /* the real one comes first */
            user = strtol(effective, NULL, 10);
            break;
        }
    }
    if (status != NULL) {
        fclose(status);
    }
    return user;
}

static void WriteFile(const char* i_pszFolder) {
    char path[4096];
    struct stat file;
    if (snprintf(path, sizeof(path), "%s/made-by-%ld.XXXXXX", i_pszFolder, (long)geteuid()) >= (int)sizeof(path)) {
        return;
    }
    const int fd = mkstemp(path);
    if (fd < 0 || fstat(fd, &file) != 0) {
        printf("as the user: cannot write in %s: %s\n", i_pszFolder, strerror(errno));
    } else {
        printf("as the user: wrote %s, which belongs to uid %ld\n", path, (long)file.st_uid);
    }
    if (fd >= 0) {
        close(fd);
    }
}

static void ReadForbidden(const char* i_pszFile) {
    /* open asks by the effective user, as nearly everything does; access(2) would ask by the service's. */
    const int fd = open(i_pszFile, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        printf("as the user: can read %s\n", i_pszFile);
        close(fd);
    } else {
        printf("as the user: may not read %s: %s\n", i_pszFile, strerror(errno));
    }
}

void WorkAs(const SSOChar* i_pszContextKey, const Work* i_pWork) {
    uint32_t code = SSOImpersonate(i_pszContextKey);
    if (code != SSO_OK) {
        ReportFailure("cannot act as the user", code); /* and the thread is the service, as before */
        return;
    }
    printf("as the user: this thread is uid %ld, the main thread is still uid %ld\n", (long)geteuid(),
           MainThreadUser());
    WriteFile(i_pWork->folder);
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
    printf("the service again: this thread is uid %ld\n", (long)geteuid());
}
