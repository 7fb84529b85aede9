/* Reasons and error records as sentences, and a sink for traces, for the example hosts. */
#include "host_report.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host_system.h"
#include "host_text.h"
#include "morwen/harrow_log.h"
#include "morwen/morwenplugin.h"

/* Prints the template with the record's texts in place of "%1" to "%3"; a place without a text stays empty. */
static void PrintTemplate(const char* i_pszTemplate, const SSOSubstitution* i_pSubstitutions) {
    for (const char* next = i_pszTemplate; *next != '\0'; ++next) {
        if (next[0] != '%' || next[1] < '1' || next[1] > '3') {
            fputc(*next, stderr);
            continue;
        }
        const SSOSubstitution* substitution = i_pSubstitutions;
        for (int skip = *++next - '1'; skip > 0 && substitution != NULL; --skip) {
            substitution = substitution->next;
        }
        char* text = TextToUtf8(substitution != NULL ? substitution->data : NULL);
        fputs(text != NULL ? text : "", stderr);
        free(text);
    }
}

void ReportFailure(const char* i_pszWhat, uint32_t i_nCode) {
    SSOError* record = NULL;
    const char* reason = HarrowLogReason();        /* empty when the message says it all */
    if (SSOGetError(i_nCode, &record) != SSO_OK) { /* some failures leave none: see the header */
        fprintf(stderr, "%s: code %u%s%s\n", i_pszWhat, (unsigned)i_nCode, *reason != '\0' ? ": " : "", reason);
        return;
    }
    SSOChar* message = NULL;
    char* text = NULL;
    if (record->message != NULL) { /* the record brings its own text when memory is out */
        text = TextToUtf8(record->message);
    } else if (SSOGetMessageContent(record->messageId, &message) == SSO_OK) {
        text = TextToUtf8(message);
        SSOFreeString(message);
    }
    if (text != NULL) {
        text[strcspn(text, "\r\n")] = '\0';
    }
    LockOutput(); /* several threads may report: one line each */
    fprintf(stderr, "%s: code %u, message %u: %s%s", i_pszWhat, (unsigned)i_nCode, (unsigned)record->messageId, reason,
            *reason != '\0' ? " -- " : "");
    PrintTemplate(text != NULL ? text : "(no text)", record->substitutions);
    fputc('\n', stderr);
    UnlockOutput();
    free(text);
    SSOFreeError(record);
}

static void PrintTrace(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage, void* i_pvUser) {
    (void)i_pvUser;
    fprintf(stderr, "%s %s:%d: %s\n", i_nKind == HARROW_LOG_ASSERTION ? "assertion" : "trace", i_pszFile, i_nLine,
            i_pszMessage);
}

void StartTrace(void) {
    HarrowLogSetSink(PrintTrace, NULL, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
}
