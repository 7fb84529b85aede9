/* Conversion between UTF-8 and UTF-16, parameter chains, and wiping, for the example hosts. */
#include "host_text.h"

#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

/* Reads one character; returns the bytes used, or 0 if this is no shortest-form UTF-8. */
static size_t ReadCharacter(const unsigned char* i_pBytes, uint32_t* o_pnCharacter) {
    static const uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const unsigned char first = i_pBytes[0];
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (length < 2) {
        *o_pnCharacter = first;
        return length;
    }
    uint32_t character = first & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((i_pBytes[i] & 0xC0) != 0x80) { /* also the text's end */
            return 0;
        }
        character = (character << 6) | (i_pBytes[i] & 0x3Fu);
    }
    *o_pnCharacter = character;
    return character < kSmallest[length] || character > 0x10FFFF || (character & 0xFFFFF800u) == 0xD800 ? 0 : length;
}

SSOChar* TextFromUtf8(const char* i_pszText) {
    const unsigned char* bytes = (const unsigned char*)i_pszText;
    /* No character takes more units than bytes. */
    SSOChar* text = malloc((strlen(i_pszText) + 1) * sizeof(SSOChar));
    SSOChar* end = text;
    while (text != NULL && *bytes != 0) {
        uint32_t character = 0;
        const size_t length = ReadCharacter(bytes, &character);
        if (length == 0) {
            free(text);
            return NULL;
        }
        bytes += length;
        if (character >= 0x10000) {
            *end++ = (SSOChar)(0xD7C0 + (character >> 10));
            character = 0xDC00 + (character & 0x3FF);
        }
        *end++ = (SSOChar)character;
    }
    if (text != NULL) {
        *end = 0;
    }
    return text;
}

static size_t Length(const SSOChar* i_pszText) {
    size_t length = 0;
    while (i_pszText != NULL && i_pszText[length] != 0) {
        ++length;
    }
    return length;
}

char* TextToUtf8(const SSOChar* i_pszText) {
    const size_t units = Length(i_pszText);
    char* text = malloc(units * 3 + 1); /* a unit takes three bytes at most, a pair four */
    char* end = text;
    for (size_t i = 0; text != NULL && i < units; ++i) {
        uint32_t character = (uint16_t)i_pszText[i];
        if ((character & 0xF800) == 0xD800) {
            const uint32_t low = (uint16_t)i_pszText[i + 1]; /* the ending zero at worst */
            if (character < 0xDC00 && (low & 0xFC00) == 0xDC00) {
                character = 0x10000 + ((character & 0x3FF) << 10) + (low & 0x3FF);
                ++i;
            } else {
                character = 0xFFFD;
            }
        }
        if (character < 0x80) {
            *end++ = (char)character;
            continue;
        }
        const int following = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
        *end++ = (char)((0xFF00u >> (following + 1) & 0xFF) | character >> (6 * following));
        for (int shift = 6 * (following - 1); shift >= 0; shift -= 6) {
            *end++ = (char)(0x80 | (character >> shift & 0x3F));
        }
    }
    if (text != NULL) {
        *end = '\0';
    }
    return text;
}

static bool SameText(const SSOChar* i_pszText, const SSOChar* i_pszOther) {
    while (*i_pszText != 0 && *i_pszText == *i_pszOther) {
        ++i_pszText;
        ++i_pszOther;
    }
    return *i_pszText == *i_pszOther;
}

const SSOChar* FindValue(const ParasSeq* i_pChain, const SSOChar* i_pszKey) {
    for (; i_pChain != NULL; i_pChain = i_pChain->next) {
        if (SameText(i_pChain->key, i_pszKey)) {
            return i_pChain->value;
        }
    }
    return NULL;
}

void WipeBytes(void* io_pvBytes, size_t i_nLength) {
    volatile unsigned char* bytes = io_pvBytes;
    while (bytes != NULL && i_nLength-- > 0) {
        *bytes++ = 0;
    }
}

void WipeText(SSOChar* io_pszText) {
    WipeBytes(io_pszText, Length(io_pszText) * sizeof(SSOChar));
    free(io_pszText);
}
