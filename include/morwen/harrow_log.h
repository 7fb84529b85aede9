/* harrow_log.h: where traces and assertions of the morwen plug-in go, and why its last call failed.
 *
 * No file and no environment variable says what is traced; a host that wants to see what happens sets a sink here.
 * Without a sink no trace is formatted and nothing is written. A C11 and C++17 header.
 *
 * The plug-in has no file and no environment variable of its own. On Linux the Kerberos library under it reads
 * krb5.conf, keytabs and ticket files, and its variables (KRB5_CONFIG, KRB5CCNAME, KRB5_KTNAME and others). The plug-in
 * looks at those that name the replay cache, as that library does (KRB5RCACHENAME, KRB5RCACHETYPE, KRB5RCACHEDIR,
 * TMPDIR), and at the marks of the replay cache's, the keytab's and the configuration's files. Local times follow the
 * system's time zone and TZ.
 */
#ifndef MORWEN_HARROW_LOG_H
#define MORWEN_HARROW_LOG_H

#include <stdint.h>

#ifdef _WIN32
#ifdef HARROW_BUILDING_LOG
#define HARROW_LOG_API __declspec(dllexport)
#else
#define HARROW_LOG_API __declspec(dllimport)
#endif
#else
#define HARROW_LOG_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Kinds, to be combined with "or". */
enum HarrowLogKind {
    HARROW_LOG_TRACE = 1,    /* what the plug-in does, step by step, and why something failed; no password ever */
    HARROW_LOG_ASSERTION = 2 /* a condition that should hold does not: a fault of the host, or of the plug-in */
};

/* Called on the thread that speaks, by many threads at once, and on the plug-in's own thread. The texts are UTF-8, end
 * with a zero byte, and are valid only during the call; control characters and marks of direction are shown as "?". The
 * plug-in holds no lock then: what it says while it holds one it says afterwards.
 *
 * The sink must not throw. It may call every function of the plug-in but two: SSOInitPackage and SSOTermPackage return
 * SSO_ERROR and do nothing when a call of the plug-in has led to the sink. HarrowLogSetSink does nothing inside a sink.
 * What would be said because of calls made inside the sink is dropped. A sink may wait, and the call that speaks with
 * it (a last SSOTermPackage waits for that call), but not for another thread's SSOTermPackage or HarrowLogSetSink,
 * which would wait for the sink. It may end the process. */
typedef void (*HarrowLogSink)(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage,
                              void* i_pvUser);

/* Sets the sink, which is given the kinds named; a null sink or no kind switches off. When it returns, the sink set
 * before is not running any more and will not be called again; until then it waits for that one alone, and nobody waits
 * for it. */
HARROW_LOG_API void HarrowLogSetSink(HarrowLogSink i_pfnSink, void* i_pvUser, uint32_t i_nKinds);

/* Why the calling thread's last call failed, in words for administrators: which ticket, key, file, account or KDC it
 * was, and what the system or the realm said ("... the ticket is for key version 57, the keytab has 56"). An error
 * record says what kind of thing failed; this says which, and goes well with it. Kept with and without a sink.
 *
 * UTF-8 without control characters, at most 1023 bytes, never null; empty when there is no more to say than the record
 * does. To be asked for after a call that failed, and valid until the thread's next call of the plug-in other than
 * SSOGetError, SSOGetMessageContent and those that give something back. For the host's own log: a peer that is told why
 * it is refused learns what it should not. */
HARROW_LOG_API const char* HarrowLogReason(void);

/* The rest is the speaking side, for libraries that write here. */

/* The word that holds the wanted kinds: to be read with a relaxed atomic load, never written. Valid as long as the
 * library is loaded. */
HARROW_LOG_API uint32_t* HarrowLogWantedKinds(void);

/* Gives one message to the sink, if it wants the kind. */
HARROW_LOG_API void HarrowLogWrite(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage);

/* Keeps a copy of the text for HarrowLogReason on this thread, in place of the one before; null or empty forgets. Does
 * nothing inside a sink. */
HARROW_LOG_API void HarrowLogSetReason(const char* i_pszReason);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
