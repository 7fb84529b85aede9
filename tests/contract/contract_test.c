/* What the header promises, seen from plain C through the loaded library: contract_test LIBRARY. */
#include <dlfcn.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "morwen/morwenplugin.h"

_Static_assert(sizeof(ParasSeq) == 32 && offsetof(ParasSeq, type) == 8 && offsetof(ParasSeq, value) == 16 &&
                   offsetof(ParasSeq, next) == 24,
               "a parameter is 32 bytes");
_Static_assert(sizeof(SSOError) == 24 && offsetof(SSOError, messageId) == 4 && offsetof(SSOError, substitutions) == 8 &&
                   offsetof(SSOError, message) == 16,
               "an error record is 24 bytes");
_Static_assert(sizeof(SSOSubstitution) == 16 && offsetof(SSOSubstitution, next) == 8, "a substitution is 16 bytes");

/* clang-format off */
#define EXPORTS(X) \
    X(SSOInitPackage) X(SSOTermPackage) X(SSOInitProvider) X(SSOGetRequiredParameters) X(SSOStartLogin) \
    X(SSOContinueLogin) X(SSOAcceptLogin) X(SSOImpersonate) X(SSORevert) X(SSOAssociateSecurityContext) \
    X(SSOAcquireCurrentSecurityContext) X(SSOReleaseSecurityContext) X(SSOReleaseAllSecurityContexts) \
    X(SSOFreeBuffer) X(SSOFreeString) X(SSOFreeParameters) X(SSOLookupSecurityContext) X(SSOGetError) \
    X(SSOFreeError) X(SSOGetMessageContent) X(SSOReleaseAllProviderSecContexts)
/* clang-format on */

/* The functions, with the header's types: a call that does not fit the header does not compile. */
static struct {
#define MEMBER(name) __typeof__(&name) name;
    EXPORTS(MEMBER)
} g_Sso;

static const char* g_pszLibrary;
static atomic_int g_nFailures;

static void Check(int i_bHolds, const char* i_pszWhat, int i_nLine) {
    if (!i_bHolds) {
        fprintf(stderr, "contract_test.c:%d: does not hold: %s\n", i_nLine, i_pszWhat);
        atomic_fetch_add(&g_nFailures, 1);
    }
}
#define CHECK(condition) Check((condition) ? 1 : 0, #condition, __LINE__)

static void* Load(void) {
    void* library = dlopen(g_pszLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
#define RESOLVE(name)                                           \
    {                                                           \
        void* address = dlsym(library, #name);                  \
        Check(address != NULL, "dlsym finds " #name, __LINE__); \
        memcpy(&g_Sso.name, &address, sizeof(address));         \
    }
    EXPORTS(RESOLVE)
    if (atomic_load(&g_nFailures) != 0) {
        exit(1);
    }
    return library;
}

static int Same(const SSOChar* i_pszText, const SSOChar* i_pszOther) {
    size_t i = 0;
    while (i_pszText != NULL && i_pszText[i] != 0 && i_pszText[i] == i_pszOther[i]) {
        ++i;
    }
    return i_pszText != NULL && i_pszText[i] == i_pszOther[i];
}

/* The code must be the expected one, and the thread's record must be the one expected (0: none), with the expected
 * first text if one is named, and there only once. */
static void CheckFailure(uint32_t i_nCode, uint32_t i_nExpected, uint32_t i_nMessage, const SSOChar* i_pszSubstitution,
                         const char* i_pszCall, int i_nLine) {
    SSOError* record = NULL;
    const uint32_t got = g_Sso.SSOGetError(i_nCode, &record);
    Check(i_nCode == i_nExpected, i_pszCall, i_nLine);
    Check((got == SSO_OK) == (record != NULL) && (got == SSO_OK || got == SSO_ERROR), "code fits the record", i_nLine);
    Check((record != NULL) == (i_nMessage != 0), "a record is there exactly when one is promised", i_nLine);
    if (record != NULL) {
        const SSOSubstitution* first = record->substitutions;
        Check(record->errCode == i_nExpected && record->message == NULL, "the record has the code, no text", i_nLine);
        Check(record->messageId == i_nMessage, "the record has the message's identifier", i_nLine);
        Check(i_pszSubstitution == NULL || (first != NULL && Same(first->data, i_pszSubstitution)), "text", i_nLine);
        CHECK(g_Sso.SSOFreeError(record) == SSO_OK);
    }
    record = NULL;
    Check(g_Sso.SSOGetError(i_nCode, &record) == SSO_ERROR && record == NULL, "a record is given once", i_nLine);
}
#define FAILS(call, code, message) CheckFailure(call, code, message, NULL, #call, __LINE__)
#define FAILS_WITH(call, code, message, text) CheckFailure(call, code, message, text, #call, __LINE__)

/* Every function that works on the package refuses while it is not started, and leaves no record. */
static void NotStarted(void) {
    ParasSeq* chain = NULL;
    void* buffer = NULL;
    SSOChar* text = NULL;
    SSOLength length = 77; /* nothing is touched */
    const uint32_t codes[] = {
        g_Sso.SSOInitProvider(u"SSPI", NULL),
        g_Sso.SSOGetRequiredParameters(u"SSPI", &chain),
        g_Sso.SSOStartLogin(u"", u"", u"SSPI", NULL, &text, &buffer, &length),
        g_Sso.SSOContinueLogin(u"1", "x", 1, &buffer, &length),
        g_Sso.SSOAcceptLogin(u"SSPI", u"", "x", 1, &buffer, &length, &chain, &text),
        g_Sso.SSOImpersonate(u"1"),
        g_Sso.SSORevert(u"1"),
        g_Sso.SSOAssociateSecurityContext(u"1", u"2"),
        g_Sso.SSOAcquireCurrentSecurityContext(u"THREADTOKEN", NULL, &text),
        g_Sso.SSOReleaseSecurityContext(u"1"),
        g_Sso.SSOReleaseAllSecurityContexts(),
        g_Sso.SSOLookupSecurityContext(u"1"),
        g_Sso.SSOGetMessageContent(42254, &text),
        g_Sso.SSOReleaseAllProviderSecContexts(NULL),
    };
    for (size_t i = 0; i < sizeof(codes) / sizeof(codes[0]); ++i) {
        FAILS(codes[i], SSO_ERROR, 0);
    }
    CHECK(chain == NULL && buffer == NULL && text == NULL && length == 77);
    CHECK(g_Sso.SSOFreeString(NULL) == SSO_OK && g_Sso.SSOFreeParameters(NULL) == SSO_OK);
    CHECK(g_Sso.SSOFreeError(NULL) == SSO_OK && g_Sso.SSOFreeBuffer(NULL) == SSO_OK);
}

static void* FindNoRecord(void* i_pvUnused) {
    SSOError* record = NULL;
    CHECK(g_Sso.SSOGetError(SSO_ERROR, &record) == SSO_ERROR && record == NULL);
    return i_pvUnused;
}

static void Errors(void) {
    static const SSOChar kLone[] = {0xD800, 0}, kReversed[] = {0xDC00, 0xD800, u'x', 0};
    static const SSOChar* const kTypes[] = {u"NO SUCH", u"sspi", u"SSPI ", u"%1", kLone, kReversed};
    for (size_t i = 0; i < sizeof(kTypes) / sizeof(kTypes[0]); ++i) {
        ParasSeq stale;
        ParasSeq* chain = &stale;
        FAILS_WITH(g_Sso.SSOInitProvider(kTypes[i], NULL), SSO_ERROR, 61216, kTypes[i]);
        FAILS_WITH(g_Sso.SSOGetRequiredParameters(kTypes[i], &chain), SSO_ERROR, 61216, kTypes[i]);
        CHECK(chain == NULL);
    }
    /* A null type is the empty one, whose place in the record is kept without a text. */
    SSOError* record = NULL;
    CHECK(g_Sso.SSOInitProvider(NULL, NULL) == SSO_ERROR && g_Sso.SSOGetError(SSO_ERROR, &record) == SSO_OK);
    CHECK(record != NULL && record->messageId == 61216 && record->substitutions != NULL &&
          record->substitutions->data == NULL && record->substitutions->next == NULL);
    CHECK(g_Sso.SSOFreeError(record) == SSO_OK);

    pthread_t thread;
    CHECK(g_Sso.SSOInitProvider(u"NO SUCH", NULL) == SSO_ERROR);
    CHECK(pthread_create(&thread, NULL, FindNoRecord, NULL) == 0 && pthread_join(thread, NULL) == 0);
    FAILS(g_Sso.SSOAssociateSecurityContext(u"1", u"2"), SSO_NO_CONTEXT, 61211); /* the newest record counts */
    CHECK(g_Sso.SSOGetError(SSO_ERROR, NULL) == SSO_ERROR && g_Sso.SSOGetMessageContent(42254, NULL) == SSO_ERROR);

    static const struct {
        uint32_t id;
        int places;
    } kMessages[] = {{42038, 1}, {42254, 0}, {42256, 0}, {42502, 0}, {47300, 0}, {47702, 0}, {50054, 0},
                     {61211, 0}, {61212, 0}, {61213, 1}, {61214, 0}, {61215, 0}, {61216, 1}, {61217, 0}};
    for (size_t i = 0; i < sizeof(kMessages) / sizeof(kMessages[0]); ++i) {
        SSOChar* text = NULL;
        int places = 0;
        CHECK(g_Sso.SSOGetMessageContent(kMessages[i].id, &text) == SSO_OK && text != NULL && text[0] != 0);
        for (const SSOChar* next = text; next != NULL && *next != 0; ++next) {
            places += next[0] == u'%' && next[1] == u'1';
        }
        CHECK(places == kMessages[i].places);
        CHECK(g_Sso.SSOFreeString(text) == SSO_OK);
    }
    static const uint32_t kUnknown[] = {0, 1, 100, 42255, UINT32_MAX};
    for (size_t i = 0; i < sizeof(kUnknown) / sizeof(kUnknown[0]); ++i) {
        SSOChar* text = NULL;
        CHECK(g_Sso.SSOGetMessageContent(kUnknown[i], &text) == SSO_ERROR && text == NULL);
    }
}

static void Settings(void) {
    ParasSeq* chain = NULL;
    CHECK(g_Sso.SSOGetRequiredParameters(u"SSPI", &chain) == SSO_OK);
    CHECK(chain != NULL && Same(chain->key, u"SI_SERVER_SSPI_SPN") && chain->type == SSO_PARAMETER_STRING &&
          chain->value == NULL && chain->next == NULL);
    CHECK(g_Sso.SSOFreeParameters(chain) == SSO_OK);
    chain = NULL;
    CHECK(g_Sso.SSOGetRequiredParameters(u"THREADTOKEN", &chain) == SSO_OK && chain == NULL);

    static const struct {
        const SSOChar* key;
        uint32_t type;
        const SSOChar* value;
        uint32_t code;
        uint32_t message;
    } kSettings[] = {
        {u"SI_CACHE_SECCONTEXT", SSO_PARAMETER_STRING, u"0", SSO_ERROR, 42038},
        {u"SSPI_CTXT_CACHE_EXPIRY", SSO_PARAMETER_STRING, u"600", SSO_ERROR, 42038},
        {u"CONTEXT_RENEWALS_ALLOWED", SSO_PARAMETER_LONG, u"1", SSO_ERROR, 42038},
        {u"SI_CACHE_SECCONTEXT", SSO_PARAMETER_BOOL, u"true", SSO_ERROR, 42254},
        {u"SSPI_CTXT_CACHE_EXPIRY", SSO_PARAMETER_LONG, u"soon", SSO_ERROR, 42254},
        {u"SSPI_CTXT_CACHE_EXPIRY", SSO_PARAMETER_LONG, u"-600", SSO_OK, 0},
        {u"SI_CACHE_SECCONTEXT", 0xABCD00 | SSO_PARAMETER_BOOL, u"-1", SSO_OK, 0}, /* only the low eight bits count */
        {u"SOMETHING ELSE", 77, NULL, SSO_OK, 0},
        {NULL, SSO_PARAMETER_STRING, u"without a key", SSO_OK, 0},
    };
    for (size_t i = 0; i < sizeof(kSettings) / sizeof(kSettings[0]); ++i) {
        const ParasSeq setting = {kSettings[i].key, kSettings[i].type, kSettings[i].value, NULL};
        const uint32_t code = g_Sso.SSOInitProvider(u"SSPI", &setting);
        FAILS_WITH(code, kSettings[i].code, kSettings[i].message, kSettings[i].message == 42038 ? setting.key : NULL);
        /* Of two with one key the later counts. */
        const ParasSeq later = {setting.key, setting.type, setting.value, NULL};
        const ParasSeq earlier = {setting.key, 99, u"?", (ParasSeq*)&later};
        FAILS(g_Sso.SSOInitProvider(u"SSPI", &earlier), kSettings[i].code, kSettings[i].message);
    }
}

static void Logins(void) {
    static const SSOChar kLone[] = {u'H', u'/', 0xDBFF, 0};
    const ParasSeq spn = {u"SI_SERVER_SSPI_SPN", SSO_PARAMETER_STRING, kLone, NULL};
    const ParasSeq wrong = {u"SI_SERVER_SSPI_SPN", SSO_PARAMETER_LONG, u"1", NULL};
    const ParasSeq* const chains[] = {NULL, &spn, &wrong};
    for (size_t i = 0; i < sizeof(chains) / sizeof(chains[0]); ++i) {
        SSOChar* key = NULL;
        void* buffer = NULL;
        SSOLength length = 77;
        const uint32_t code = g_Sso.SSOStartLogin(NULL, NULL, u"SSPI", chains[i], &key, &buffer, &length);
        CHECK(code >= SSO_DENIED && key == NULL && buffer == NULL && length == 0);
        length = 77;
        CHECK(g_Sso.SSOStartLogin(kLone, kLone, u"SSPI", chains[i], &key, &buffer, &length) >= SSO_DENIED);
        CHECK(key == NULL && buffer == NULL && length == 0);
        SSOError* record = NULL;
        CHECK(g_Sso.SSOGetError(code, &record) == SSO_OK && g_Sso.SSOFreeError(record) == SSO_OK);
    }
    SSOChar* key = NULL;
    void* buffer = NULL;
    SSOLength length = 77;
    FAILS(g_Sso.SSOStartLogin(u"", u"", u"SSPI", &spn, NULL, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOStartLogin(u"", u"", u"SSPI", &spn, &key, NULL, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOStartLogin(u"", u"", u"SSPI", &spn, &key, &buffer, NULL), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOStartLogin(u"", u"", u"", &spn, &key, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOStartLogin(u"", u"", u"THREADTOKEN", &spn, &key, &buffer, &length), SSO_NOT_SUPPORTED, 42254);
    FAILS_WITH(g_Sso.SSOStartLogin(u"", u"", u"X", &spn, &key, &buffer, &length), SSO_ERROR, 61216, u"X");

    FAILS(g_Sso.SSOContinueLogin(u"1", "x", 0, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"1", NULL, 1, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"1", "x", 1, NULL, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"1", "x", 1, &buffer, NULL), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(NULL, "x", 1, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"no number", "x", 1, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"18446744073709551616", "x", 1, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOContinueLogin(u"123456789", "x", 1, &buffer, &length), SSO_ERROR, 42254);

    FAILS(g_Sso.SSOAcceptLogin(u"SSPI", u"", "x", 1, NULL, &length, NULL, &key), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOAcceptLogin(u"SSPI", u"", "x", 1, &buffer, NULL, NULL, &key), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOAcceptLogin(u"SSPI", u"", "x", 1, &buffer, &length, NULL, NULL), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOAcceptLogin(u"SSPI", u"no number", "x", 1, &buffer, &length, NULL, &key), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOAcceptLogin(u"THREADTOKEN", NULL, "x", 1, &buffer, &length, NULL, &key), SSO_NOT_SUPPORTED, 42254);
    FAILS_WITH(g_Sso.SSOAcceptLogin(NULL, NULL, "x", 1, &buffer, &length, NULL, &key), SSO_ERROR, 61216, NULL);
    CHECK(key == NULL && buffer == NULL);
}

/* Chains and names as no host would send them, and lengths that lie. */
static void Attacks(void) {
    enum { kMany = 200000 };
    static ParasSeq s_aChain[kMany];
    static SSOChar s_aName[kMany];
    for (size_t i = 0; i < kMany; ++i) {
        const ParasSeq element = {u"SI_SERVER_SSPI_SPN", SSO_PARAMETER_STRING, i == 0 ? s_aName : u"x",
                                  s_aChain + i + 1};
        s_aChain[i] = element;
        s_aName[i] = (SSOChar)(i == 1 ? u'\\' : 1 + i % 0xFFFE); /* controls, separators, lone surrogates */
    }
    s_aChain[kMany - 1].next = NULL;
    s_aName[kMany - 1] = 0;
    CHECK(g_Sso.SSOInitProvider(u"SSPI", s_aChain) == SSO_OK);
    SSOChar* key = NULL;
    void* buffer = NULL;
    SSOLength length = 0;
    CHECK(g_Sso.SSOStartLogin(s_aName, s_aName, u"SSPI", s_aChain, &key, &buffer, &length) >= SSO_DENIED);
    FAILS(g_Sso.SSOContinueLogin(s_aName, "x", 1U << 31U, &buffer, &length), SSO_ERROR, 42254);
    FAILS(g_Sso.SSOImpersonate(s_aName), SSO_ERROR, 61217);
    CHECK(key == NULL && buffer == NULL && length == 0);
}

static void Contexts(void) {
    static const SSOChar kLone[] = {0xDFFF, 0};
    static const SSOChar* const kKeys[] = {NULL, u"", u"1", u"DUMMY_KEY", u"DUMMY_KEY__CACHING_IS_OFF", kLone};
    for (size_t i = 0; i < sizeof(kKeys) / sizeof(kKeys[0]); ++i) {
        FAILS(g_Sso.SSOLookupSecurityContext(kKeys[i]), SSO_NO_CONTEXT, 0);
        FAILS(g_Sso.SSOReleaseSecurityContext(kKeys[i]), SSO_NO_CONTEXT, 0);
        FAILS(g_Sso.SSOAssociateSecurityContext(kKeys[i], u"new"), SSO_NO_CONTEXT, 61211);
        FAILS(g_Sso.SSOImpersonate(kKeys[i]), SSO_ERROR, 61217);
        FAILS(g_Sso.SSORevert(kKeys[i]), SSO_ERROR, 61211);
    }
    SSOChar* key = NULL;
    FAILS(g_Sso.SSOAcquireCurrentSecurityContext(u"SSPI", NULL, &key), SSO_NOT_SUPPORTED, 42254);
    FAILS(g_Sso.SSOAcquireCurrentSecurityContext(u"SSPI", NULL, NULL), SSO_ERROR, 42254);
    FAILS_WITH(g_Sso.SSOAcquireCurrentSecurityContext(u"X", NULL, &key), SSO_ERROR, 61216, u"X");
    CHECK(key == NULL && g_Sso.SSOReleaseAllSecurityContexts() == SSO_OK);
    int anything = 0;
    FAILS(g_Sso.SSOReleaseAllProviderSecContexts(NULL), SSO_ERROR, 0);
    FAILS(g_Sso.SSOReleaseAllProviderSecContexts(&anything), SSO_ERROR, 0);
}

/* A user of the package on a thread of its own: between its start and its end everything works, whatever others do. The
 * thread is cancelled, which takes effect in no call of the library. */
static void* StartUseEnd(void* i_pvName) {
    const ParasSeq keep = {u"" SSO_KEY_CACHE_CONTEXTS, SSO_PARAMETER_BOOL, u"1", NULL};
    CHECK(pthread_cancel(pthread_self()) == 0);
    for (int round = 0; round < 300; ++round) {
        ParasSeq* chain = NULL;
        CHECK(g_Sso.SSOInitPackage() == SSO_OK);
        CHECK(g_Sso.SSOInitProvider(u"SSPI", &keep) == SSO_OK); /* with a thread, for whose end somebody waits */
        FAILS_WITH(g_Sso.SSOInitProvider(i_pvName, NULL), SSO_ERROR, 61216, i_pvName);
        CHECK(g_Sso.SSOGetRequiredParameters(u"SSPI", &chain) == SSO_OK && chain != NULL);
        CHECK(g_Sso.SSOFreeParameters(chain) == SSO_OK);
        CHECK(g_Sso.SSOLookupSecurityContext(u"1") == SSO_NO_CONTEXT);
        CHECK(g_Sso.SSOInitProvider(i_pvName, NULL) == SSO_ERROR); /* a record that nobody takes */
        CHECK(g_Sso.SSOTermPackage() == SSO_OK);
    }
    pthread_testcancel();
    return NULL;
}

static void Threads(void) {
    static SSOChar s_aaNames[8][2];
    pthread_t threads[8];
    for (size_t i = 0; i < 8; ++i) {
        s_aaNames[i][0] = (SSOChar)(u'a' + i);
        CHECK(pthread_create(&threads[i], NULL, StartUseEnd, s_aaNames[i]) == 0);
    }
    for (size_t i = 0; i < 8; ++i) {
        void* ended = NULL;
        CHECK(pthread_join(threads[i], &ended) == 0 && ended == PTHREAD_CANCELED);
    }
    CHECK(g_Sso.SSOLookupSecurityContext(u"1") == SSO_ERROR); /* every start was taken back */
}

static pthread_barrier_t g_Used, g_Unloaded;

static void* OutliveLibrary(void* i_pvUnused) {
    CHECK(g_Sso.SSOInitProvider(u"X", NULL) == SSO_ERROR); /* now this thread has a record in the library */
    pthread_barrier_wait(&g_Used);
    pthread_barrier_wait(&g_Unloaded);
    return i_pvUnused; /* whatever runs at a thread's end must not be code that is gone */
}

static void Unload(void) {
    CHECK(pthread_barrier_init(&g_Used, NULL, 2) == 0 && pthread_barrier_init(&g_Unloaded, NULL, 2) == 0);
    for (int round = 0; round < 20; ++round) {
        pthread_t thread;
        void* library = Load();
        CHECK(g_Sso.SSOInitPackage() == SSO_OK);
        Errors();
        Settings();
        CHECK(pthread_create(&thread, NULL, OutliveLibrary, NULL) == 0);
        pthread_barrier_wait(&g_Used);
        CHECK(g_Sso.SSOTermPackage() == SSO_OK && dlclose(library) == 0);
        CHECK(dlopen(g_pszLibrary, RTLD_NOW | RTLD_NOLOAD) == NULL);
        pthread_barrier_wait(&g_Unloaded);
        CHECK(pthread_join(thread, NULL) == 0);
    }
}

int main(int i_nArguments, char** i_ppszArguments) {
    static const struct {
        const char* name;
        void (*run)(void);
        int started; /* runs on a started package */
    } kGroups[] = {{"not-started", NotStarted, 0}, {"errors", Errors, 1},   {"settings", Settings, 1},
                   {"logins", Logins, 1},          {"attacks", Attacks, 1}, {"contexts", Contexts, 1},
                   {"threads", Threads, 0}};
    if (i_nArguments != 2) {
        fputs("usage: contract_test LIBRARY\n", stderr);
        return 2;
    }
    g_pszLibrary = i_ppszArguments[1];
    Unload(); /* first, while nothing else keeps the library */
    void* library = Load();
    for (size_t i = 0; i < sizeof(kGroups) / sizeof(kGroups[0]); ++i) {
        const int before = atomic_load(&g_nFailures);
        CHECK(!kGroups[i].started || g_Sso.SSOInitPackage() == SSO_OK);
        kGroups[i].run();
        CHECK(!kGroups[i].started || g_Sso.SSOTermPackage() == SSO_OK);
        printf("%s: %s\n", kGroups[i].name, atomic_load(&g_nFailures) == before ? "holds" : "DOES NOT HOLD");
    }
    CHECK(dlclose(library) == 0);
    return atomic_load(&g_nFailures) == 0 ? 0 : 1;
}
