/* What the example hosts say about failures, and where the plug-in's traces go. */
#ifndef MORWEN_EXAMPLES_HOST_REPORT_H
#define MORWEN_EXAMPLES_HOST_REPORT_H

#include <stdint.h>

/* Prints what failed and why, from the calling thread's reason and its error record. To be called on the thread that
 * got the code, before it calls the plug-in again. */
void ReportFailure(const char* i_pszWhat, uint32_t i_nCode);

/* From here on every trace and assertion of the plug-in is printed on standard error. */
void StartTrace(void);

#endif
