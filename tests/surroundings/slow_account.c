/* To be preloaded: while the file "slow" is there, the account database takes three seconds to find "nobody". */
#include <dlfcn.h>
#include <pwd.h>
#include <string.h>
#include <unistd.h>

__attribute__((visibility("default"))) int getpwnam_r(const char* i_pszName, struct passwd* o_pAccount, char* o_pBuffer,
                                                      size_t i_nLength, struct passwd** o_ppFound) {
    __typeof__(&getpwnam_r) next;
    void* const address = dlsym(RTLD_NEXT, "getpwnam_r");
    memcpy(&next, &address, sizeof(next));
    if (strcmp(i_pszName, "nobody") == 0 && access("slow", F_OK) == 0) {
        sleep(3);
    }
    return next(i_pszName, o_pAccount, o_pBuffer, i_nLength, o_ppFound);
}
