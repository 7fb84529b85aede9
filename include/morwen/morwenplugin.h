/* morwenplugin.h: the contract between the morwen single sign-on plug-in and the program that loads it (the host).
 *
 * A C11 and C++20 header. It needs nothing but the C library's headers.
 *
 * 1. Results. Every function returns a 32-bit code (enum SSOCode). SSO_OK, SSO_CONTINUE and SSO_ACCEPTED are successes,
 *    everything else is an error. No C++ exception ever leaves a function.
 * 2. Text is UTF-16, ended by a zero unit (SSOChar: char16_t, on Windows wchar_t). A null input is the empty text.
 * 3. Ownership. Whatever a function writes through an "out" pointer was allocated by the plug-in and goes back through
 *    the function that the text names (SSOFreeBuffer, SSOFreeString, SSOFreeParameters, SSOFreeError), never through
 *    free or delete. What the host passes in stays the host's; the plug-in keeps no pointer to it.
 * 4. Out pointers must point to a null pointer on entry: the plug-in overwrites what stands there, and an allocation
 *    that stood there is lost (which an assertion reports). An out pointer may be null only where the text says so.
 * 5. Outputs on failure. When a function fails, every text, chain and buffer that it would have handed out is null and
 *    every length 0; there is nothing to free. A call that is refused before it begins (the package is not started, a
 *    null argument, SSOContinueLogin with an empty answer, no memory to read the arguments) leaves the outputs as they
 *    were.
 * 6. Threads. Every function may be called on any thread, and by many at once. Of two calls with the same session key
 *    at the same time one fails with SSO_ERROR and changes nothing. No call waits for another user's; what may take
 * long (a KDC, a name service) keeps its own caller. The last SSOTermPackage waits for calls under way; a call between
 *    its beginning and the end of the next SSOInitPackage returns SSO_ERROR.
 * 7. Errors. After a code of SSO_DENIED or above, SSOGetError on the same thread gives a record of what happened, once,
 *    for most failures; where the text says "no record", there is none. A record that another failure of the thread has
 *    overtaken, or whose thread has ended, stays in memory until the package ends: a server calls SSOGetError after
 *    every failure, or strangers' bad tokens pile them up.
 * 8. The end. The process may end while threads are in any call, with or without a last SSOTermPackage; it may wait a
 *    second for those that are at work with Kerberos, and later logons fail. An unload needs the last SSOTermPackage
 *    first, and no thread in a call; while the package is started the library stays in memory. On Windows that call
 *    must not come from a DllMain, nor from a static object of a library that is unloaded: it waits for a thread that
 *    cannot end then.
 */
#ifndef MORWEN_MORWENPLUGIN_H
#define MORWEN_MORWENPLUGIN_H

#include <stdint.h>

#ifdef _WIN32
#include <wchar.h>
typedef wchar_t SSOChar;         /* one UTF-16 unit */
typedef unsigned long SSOLength; /* 32 bits */
#ifdef MORWEN_BUILDING_PLUGIN
#define SSO_API __declspec(dllexport)
#else
#define SSO_API __declspec(dllimport)
#endif
#else
#ifndef __cplusplus
#include <uchar.h>
#endif
typedef char16_t SSOChar;   /* one UTF-16 unit */
typedef uint32_t SSOLength; /* 32 bits */
#define SSO_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What the functions return. */
enum SSOCode {
    SSO_OK = 0,              /* done; of a client's login: complete */
    SSO_CONTINUE = 1,        /* send the token to the other side and call again with its answer */
    SSO_ACCEPTED = 2,        /* the accepting side's login is complete */
    SSO_DENIED = 3,          /* the security package refused the logon */
    SSO_ERROR = 100,         /* anything that has no code of its own */
    SSO_NOT_SUPPORTED = 101, /* the provider type does not offer this operation */
    SSO_NO_CONTEXT = 103,    /* no security context under the given key */
    SSO_OUT_OF_MEMORY = 106  /* there is not enough memory; the record of it needs none */
};

/* Type tags of a parameter. Values are always text; the tag says how to read it. */
enum SSOParameterType {
    SSO_PARAMETER_STRING = 1, /* the text itself */
    SSO_PARAMETER_LONG = 2,   /* decimal digits, with a leading minus for a negative number; 64 bits signed */
    SSO_PARAMETER_BOOL = 3    /* "1" is true; "0" and "-1" are false; anything else is an error */
};

/* One parameter of a chain. 32 bytes on a 64-bit platform. A null chain is an empty set. Of two elements with one key
 * the later counts. A chain that the plug-in hands out is one block, sorted by key. */
typedef struct ParasSeq {
    const SSOChar* key;
    uint32_t type;         /* enum SSOParameterType; only the low eight bits are read */
    const SSOChar* value;  /* null means the empty text */
    struct ParasSeq* next; /* null in the last element */
} ParasSeq;

/* A text to be put in place of "%1", "%2" or "%3" of a message. 16 bytes on a 64-bit platform. */
typedef struct SSOSubstitution {
    const SSOChar* data; /* null when the text is empty */
    struct SSOSubstitution* next;
} SSOSubstitution;

/* What happened. 24 bytes on a 64-bit platform. Goes back through SSOFreeError. */
typedef struct SSOError {
    uint32_t errCode;               /* the code that the failed function returned */
    uint32_t messageId;             /* for SSOGetMessageContent */
    SSOSubstitution* substitutions; /* null, or the first of up to three */
    const SSOChar* message;         /* null but in the record of SSO_OUT_OF_MEMORY, which holds its text itself */
} SSOError;

/* Provider types: Kerberos, and the identity under which the calling thread already runs. */
#define SSO_PROVIDER_SSPI "SSPI"
#define SSO_PROVIDER_THREADTOKEN "THREADTOKEN"

/* Parameter keys, as ASCII literals. To get UTF-16 write u"" SSO_KEY_SPN, in C++ on Windows L"" SSO_KEY_SPN. */

/* String: the server's principal, "service/host" or "service/host@REALM". */
#define SSO_KEY_SPN "SI_SERVER_SSPI_SPN"
/* Bool: keep the contexts of accepted logins; true unless set. */
#define SSO_KEY_CACHE_CONTEXTS "SI_CACHE_SECCONTEXT"
/* Long: seconds that a context serves, counted from the login. SSPI: 0 unless set, which means as long as its ticket;
 * SSOImpersonate and renewal look at it, lookup and clean-up go by the ticket. THREADTOKEN: one day unless set, 0: no
 * limit; lookup and clean-up go by it too. */
#define SSO_KEY_CACHE_EXPIRY "SSPI_CTXT_CACHE_EXPIRY"
/* Bool: renew kept contexts of SSPI before their tickets run out; true unless set. Nothing is renewed without tickets
 * that the user has delegated (on Linux also, where the directory lets the service delegate to itself, without),
 * SSO_KEY_SPN among the provider's settings, and a SSO_KEY_CACHE_EXPIRY that is longer than the ticket's life and not
 * over. */
#define SSO_KEY_RENEWALS "CONTEXT_RENEWALS_ALLOWED"
/* Bool: accept only tickets with a directory's logon information (its PAC); false unless set. For services all of whose
 * users come from directories: a user may have asked for a ticket without it, and is then known by the name alone that
 * he has asked by. Others are denied, whether or not the host wants logon information. Without effect on Windows, which
 * does not tell how it has found out who the user is. */
#define SSO_KEY_REQUIRE_LOGON_INFO "SSPI_REQUIRE_LOGON_INFO"
/* Bool, for SSOStartLogin: wrap the client's tokens into SPNEGO (RFC 4178), for servers that await it, as those of HTTP
 * do; false unless set. A server needs no setting: it answers each client in its own way. A token that comes with
 * SSO_OK must then be sent too. */
#define SSO_KEY_NEGOTIATE "SSPI_NEGOTIATE"
/* String: the channel that the login is for, so that nobody who stands between two channels can pass it on: a type of
 * RFC 5929 or 9266, a colon, and the bytes that it defines in hexadecimal digits. A client gives it to SSOStartLogin,
 * always: servers that compare nothing pass over it. A server gives it to SSOInitProvider, with a rule, and again when
 * its certificate changes. The types, one a paragraph:
 *
 * "tls-server-end-point": the hash of the server's certificate in its DER form, by the hash function of the
 * certificate's signature, or by SHA-256 where that is MD5 or SHA-1. The same for all connections, so it fits a
 * server's setting. Behind a proxy that ends TLS it is the proxy's certificate.
 *
 * "tls-exporter": 32 bytes that the connection exports (RFC 5705) with the label "EXPORTER-Channel-Binding" and an
 * empty context, in TLS 1.3. Another value for each connection.
 *
 * A client whose server is a Java program that uses the class ChannelBinding puts ";null-addresses" behind the value.
 */
#define SSO_KEY_CHANNEL_BINDINGS "SSPI_CHANNEL_BINDINGS"
/* String, for SSOInitProvider: what is done about the channel bindings of clients. "ignore", unless set: nothing.
 * "check": a client that sends some must send these. "require": every client must. Others are refused, with SSO_ERROR
 * and a reason that names the channel bindings. */
#define SSO_KEY_CHANNEL_BINDINGS_RULE "SSPI_CHANNEL_BINDINGS_RULE"
/* String, from SSOAcceptLogin: the user's security identifier. */
#define SSO_KEY_USER_SID "SSPI_USER_SID"
/* String, from SSOAcceptLogin: the security identifiers of the user's groups, each followed by ";". */
#define SSO_KEY_GROUP_SIDS "SSPI_USER_GROUP_SIDS"

/* Keys handed out in place of a context's key: a client keeps no context; accepted, and contexts are not kept. */
#define SSO_KEY_TEXT_CLIENT_DONE "DUMMY_KEY"
#define SSO_KEY_TEXT_CACHING_OFF "DUMMY_KEY__CACHING_IS_OFF"

/* Starts the package, or counts up at once when it is started. It waits for a last SSOTermPackage under way. One
 * SSOTermPackage belongs to each success. SSO_ERROR from a log sink (see harrow_log.h). No record. */
SSO_API uint32_t SSOInitPackage(void);

/* Counts down at once; the last call ends the package, and with it every session, kept context and error record. It
 * waits for the calls that are under way, as long as they take, and for a renewal under way, but for no call that comes
 * later. It makes its own thread itself again, should that act as a user; another thread that does stays the user:
 * revert there before, or after the next SSOInitPackage by SSORevert under the key of any context of that time. In a
 * forked child it waits for nobody: what its parent's threads were at work with stays in memory, and if they were in
 * calls at the fork, the package does not start there again. SSO_ERROR from a log sink (see harrow_log.h), and nothing
 * is ended. No record. */
SSO_API uint32_t SSOTermPackage(void);

/* Makes the handler of a provider type and gives it its settings. A setting that is absent keeps its value; a setting
 * of the wrong type fails the call and changes nothing. SSO_KEY_SPN is the name under which the server renews kept
 * contexts; it is not checked here, and a call without it takes it away. May be called again. */
SSO_API uint32_t SSOInitProvider(const SSOChar* i_pszType, const ParasSeq* i_pParameters);

/* The parameters that a login of this type needs, with empty values. Out: goes back through SSOFreeParameters. */
SSO_API uint32_t SSOGetRequiredParameters(const SSOChar* i_pszType, ParasSeq** o_ppParameters);

/* Client: begins a login. With an empty user name the logged-on user's own tickets are used; otherwise the name has the
 * form DOMAIN\user and the password goes with it. The parameters must hold SSO_KEY_SPN. Returns SSO_CONTINUE (send the
 * token, then SSOContinueLogin with the answer), or SSO_OK when no answer is awaited. A failure leaves no session.
 * Nothing but SSOTermPackage ends a session whose login is not completed. Out: session key (SSOFreeString), token
 * (SSOFreeBuffer) and its length in bytes. */
SSO_API uint32_t SSOStartLogin(const SSOChar* i_pszUser, const SSOChar* i_pszPassword, const SSOChar* i_pszType,
                               const ParasSeq* i_pParameters, SSOChar** o_ppszSessionKey, void** o_ppvBuffer,
                               SSOLength* o_pnBufferLength);

/* Client: goes on with the server's answer. SSO_OK: the server is authenticated and the session is gone. SSO_CONTINUE:
 * another round. A token that is refused leaves the session as it was (unless it tampers with SPNEGO's list of
 * mechanisms: then the login has failed). Out: next token (SSOFreeBuffer; may be null) and its length. */
SSO_API uint32_t SSOContinueLogin(const SSOChar* i_pszSessionKey, const void* i_pvBuffer, SSOLength i_nBufferLength,
                                  void** o_ppvBuffer, SSOLength* o_pnBufferLength);

/* Server: takes a client's token. First with an empty session key; SSO_CONTINUE gives the key for the next call of this
 * login. When there is an answer, send it. A server whose client sends nothing more calls again with the key, a null
 * buffer and length 0 to close the login. A first call that fails leaves no session; after a token that is refused
 * later the key still names the login, which only SSOTermPackage ends when it is not completed (of those whose clients
 * have shown no ticket, as SPNEGO allows, the newest 1,024 stay). SSO_ACCEPTED: the user is who the ticket says, and
 * o_ppszSessionKey holds the key of the kept context (or SSO_KEY_TEXT_CACHING_OFF). Out: answer (SSOFreeBuffer; may be
 * null), its length, logon information (SSOFreeParameters; the pointer may be null when it is not wanted), key
 * (SSOFreeString). */
SSO_API uint32_t SSOAcceptLogin(const SSOChar* i_pszType, const SSOChar* i_pszSessionKey, const void* i_pvBuffer,
                                SSOLength i_nBufferLength, void** o_ppvBuffer, SSOLength* o_pnBufferLength,
                                ParasSeq** o_ppLogonInformation, SSOChar** o_ppszSessionKey);

/* The calling thread goes on as the user of the context, until SSORevert on the same thread, or until it acts as
 * another user. */
SSO_API uint32_t SSOImpersonate(const SSOChar* i_pszContextKey);

/* The calling thread is itself again, whichever context's user it was. Also for a context that has expired meanwhile.
 * Other threads that act through the context stay its user. */
SSO_API uint32_t SSORevert(const SSOChar* i_pszContextKey);

/* Gives a context a key of the host's choice; the old key names nothing afterwards. A context that has the new key
 * already is let go. Decimal digits may be another context's key, now or later: do not choose such a key.
 * SSO_NO_CONTEXT if there is no context under the old key. */
SSO_API uint32_t SSOAssociateSecurityContext(const SSOChar* i_pszContextKey, const SSOChar* i_pszNewKey);

/* Keeps the identity that the calling thread has (type "THREADTOKEN"). Out: the context's key (SSOFreeString). */
SSO_API uint32_t SSOAcquireCurrentSecurityContext(const SSOChar* i_pszType, const ParasSeq* i_pParameters,
                                                  SSOChar** o_ppszContextKey);

/* Lets one context go. SSO_NO_CONTEXT if there is none; no record. */
SSO_API uint32_t SSOReleaseSecurityContext(const SSOChar* i_pszContextKey);

/* Lets every context go that is there at this moment; what other threads keep from then on stays. Nothing else waits
 * for it: the calling thread alone ends them, a microsecond or two each, and waits last for those that calls of other
 * threads (SSOImpersonate, SSORevert) are at work with. */
SSO_API uint32_t SSOReleaseAllSecurityContexts(void);

/* Gives a token buffer back. Does nothing while the package is not started: give buffers back before SSOTermPackage. */
SSO_API uint32_t SSOFreeBuffer(void* i_pvBuffer);

/* Gives a text back. At any time; null does nothing. */
SSO_API uint32_t SSOFreeString(SSOChar* i_pszText);

/* Gives a chain back that the plug-in made. Null does nothing. */
SSO_API uint32_t SSOFreeParameters(ParasSeq* i_pParameters);

/* SSO_OK if there is a context under the key that has not expired, else SSO_NO_CONTEXT; no record. */
SSO_API uint32_t SSOLookupSecurityContext(const SSOChar* i_pszContextKey);

/* The calling thread's newest error record, once. SSO_ERROR and null if there is none. Out: goes back through
 * SSOFreeError. The code is the one that the failed function returned; a record with another code belongs to an earlier
 * failure, whose record nobody has taken. */
SSO_API uint32_t SSOGetError(uint32_t i_nErrorCode, SSOError** o_ppError);

/* Gives a record back. Null does nothing. */
SSO_API uint32_t SSOFreeError(SSOError* i_pError);

/* The text of a message, with "%1" to "%3" where the record's substitutions belong. Out: goes back through
 * SSOFreeString. SSO_ERROR and null for an unknown identifier, and when memory is short; no record, so that the one
 * that is being explained stays. */
SSO_API uint32_t SSOGetMessageContent(uint32_t i_nMessageId, SSOChar** o_ppszMessage);

/* Not offered: always returns SSO_ERROR and does nothing. */
SSO_API uint32_t SSOReleaseAllProviderSecContexts(void* i_pvIgnored);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
