/* Text for the example hosts: the plug-in speaks UTF-16, arguments and terminals speak UTF-8. */
#ifndef MORWEN_EXAMPLES_HOST_TEXT_H
#define MORWEN_EXAMPLES_HOST_TEXT_H

#include <stddef.h>

#include "morwen/morwenplugin.h"

/* The text in UTF-16; null when it is not UTF-8 or memory is out. Goes back through free. */
SSOChar* TextFromUtf8(const char* i_pszText);

/* The text in UTF-8, a null one as the empty text, half a surrogate pair as U+FFFD; null when memory is out. Goes back
 * through free. */
char* TextToUtf8(const SSOChar* i_pszText);

/* The value under the key; null when the chain has none. */
const SSOChar* FindValue(const ParasSeq* i_pChain, const SSOChar* i_pszKey);

/* Overwrites a password in a way that the compiler does not take out; does nothing to null. */
void WipeBytes(void* io_pvBytes, size_t i_nLength);

/* Wipes a text and gives it back to free. */
void WipeText(SSOChar* io_pszText);

#endif
