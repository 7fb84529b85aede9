/* harrow_log.h: where traces and assertions of the morwen plug-in go, and why its last call failed.
 *
 * The plug-in reads no file and no environment variable; a host that wants to see what happens sets a sink here.
 * Without a sink no trace is formatted and nothing is written. A C11 and C++17 header.
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

/* Called on the thread that speaks, by many threads at once. The texts are UTF-8, end with a zero byte, and are valid
 * only during the call. The sink must not throw and must not call HarrowLogSetSink; what the plug-in would trace
 * because of calls made inside the sink is dropped. */
typedef void (*HarrowLogSink)(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage,
                              void* i_pvUser);

/* Sets the sink, which is given the kinds named; a null sink or no kind switches off. When it returns, the sink set
 * before is not running any more and will not be called again. */
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
