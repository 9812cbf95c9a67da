// Texts and multi-strings in the ANSI code page. A multi-string is NUL-terminated texts closed by an empty one, numbered
// from 1.
#pragma once

#include "log/heap.h"

// Text number `index`, pointing into `texts`; null when there is none.
const char *VXREng_GetSubString(int32_t index, const char *texts);
int32_t VXREng_GetSubStringCount(const char *texts);
// Number of the first text equal to `target` without regard to case; 0 when none.
int32_t VXREng_FindMatch(const char *target, const char *texts);
// A copy with every `from` replaced; null for null input or without memory. With `from` NUL or equal to `to` the text
// comes back unchanged.
HeapText VXREng_FixString(char from, char to, const char *input);
// The same in place. TRUE.
BOOL VXREng_FixStr(char from, char to, char *text);
int VXREng_StrNICmp(const char *a, const char *b, SIZE_T count);
int VXREng_StrICmp(const char *a, const char *b);
// First occurrence of a single-byte character, never the trail byte of a two-byte one; null when none.
char *VXREng_StrChr(char *text, char character);
const char *VXREng_StrChr(const char *text, char character);
char *VXREng_StrUpr(char *text);
char *VXREng_StrLwr(char *text);

// Whether `text` begins with `prefix` without regard to case.
bool BeginsWith(const char *text, const char *prefix);
// `directory`, a backslash and `name` as a new text with `spare` further zero bytes; null after logging `purpose`.
HeapText JoinPath(const char *directory, const char *name, SIZE_T spare, const char *purpose,
                  const char *caller = __builtin_FUNCTION());
