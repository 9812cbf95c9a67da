// Texts and multi-strings in the ANSI code page. A multi-string is NUL-terminated texts closed by an empty one,
// numbered from 1; one that begins with the empty text holds none.
//
// The walkers, comparisons, searches and case conversions run in the innermost loops of the driver search, many times a
// line of an INF file: like one-line accessors they leave no entry and exit lines in the log.
#pragma once

#include <cstring>

#include "log/heap.h"

// Text number `index`, pointing into `texts`; null when there is none (as for null or empty `texts`, or an index below
// 1).
const char *VXREng_GetSubString(int32_t index, const char *texts);
// 0 for null or empty `texts`.
int32_t VXREng_GetSubStringCount(const char *texts);
// Number of the first text equal to `target` without regard to case; 0 when none, or when either is null or empty.
int32_t VXREng_FindMatch(const char *target, const char *texts);

// A copy with every single-byte character `from` replaced by `to`; null for null input or without memory (both logged).
// With `from` NUL or equal to `to` the text comes back unchanged.
HeapText VXREng_FixString(char from, char to, const char *input);
// The same in place. Always TRUE; a null text is logged.
BOOL VXREng_FixStr(char from, char to, char *text);

// Comparison without regard to case, of at most `count` bytes: 0 when equal, else negative or positive by the
// characters' codes. Neither text may be null.
int VXREng_StrNICmp(const char *a, const char *b, SIZE_T count);
int VXREng_StrICmp(const char *a, const char *b);
// First occurrence of a single-byte character, never the trail byte of a two-byte one; null when none. NUL finds the
// terminator.
char *VXREng_StrChr(char *text, char character);
const char *VXREng_StrChr(const char *text, char character);
// First occurrence of a text of single-byte characters, which begins no earlier than with a character of its own; null
// when none.
char *FindText(char *text, const char *wanted);
// Case conversion in place. Return `text`, or null when it is null or the platform did not convert all of it.
char *VXREng_StrUpr(char *text);
char *VXREng_StrLwr(char *text);

// Whether `text` begins with `prefix` without regard to case. Neither may be null; every text begins with the empty
// one.
bool BeginsWith(const char *text, const char *prefix);
// The last backslash of a path that is a character of its own; null when none.
char *LastBackslash(char *path);
const char *LastBackslash(const char *path);
// `directory`, a backslash and `name` as a new text with `spare` further zero bytes; null after logging `purpose`.
HeapText JoinPath(const char *directory, const char *name, SIZE_T spare, const char *purpose,
                  const Caller &trace = {__builtin_FUNCTION()});

// Stores a text in a record's field, cut to what leaves room for its terminator; the bytes behind it become zero. Reads
// at most `length` bytes of a text that may lack its terminator.
template <SIZE_T kSize>
void StoreText(char (&field)[kSize], const char *text, SIZE_T length = kSize) {
  length = strnlen(text, length < kSize ? length : kSize - 1);
  std::memcpy(field, text, length);
  std::memset(field + length, 0, kSize - length);
}
