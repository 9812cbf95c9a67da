#include "engine/base/strings.h"

#include <cstdint>
#include <cstring>

#include "log/characters.h"
#include "log/log.h"

namespace {

bool IsAscii(char character) { return static_cast<BYTE>(character) < 0x80; }

// Code of the character of `length` bytes at `text`, in lower case. The platform converts what is not ASCII, so that
// texts compare as Windows itself compares them, whatever its code page is.
int FoldedCode(const char *text, SIZE_T length) {
  if (IsAscii(*text)) return *text >= 'A' && *text <= 'Z' ? *text - 'A' + 'a' : *text;
  char folded[2] = {text[0], length == 2 ? text[1] : '\0'};
  platform::CharLowerBuffA(folded, static_cast<DWORD>(length));
  const int first = static_cast<BYTE>(folded[0]);
  return length == 2 ? first << 8 | static_cast<BYTE>(folded[1]) : first;
}

// Searches on from each place found: what stands before it has no `from` left. The place itself is looked at again,
// since a `to` that is a lead byte takes the next byte for its trail byte.
void ReplaceCharacter(char from, char to, char *text) {
  if (from == '\0' || from == to) return;
  for (char *at = VXREng_StrChr(text, from); at != nullptr; at = VXREng_StrChr(at, from)) *at = to;
}

}  // namespace

const char *VXREng_GetSubString(int32_t index, const char *texts) {
  if (texts == nullptr || index < 1) return nullptr;
  for (int32_t number = 1; *texts != '\0'; ++number, texts += std::strlen(texts) + 1) {
    if (number == index) return texts;
  }
  return nullptr;
}

int32_t VXREng_GetSubStringCount(const char *texts) {
  int32_t count = 0;
  if (texts == nullptr) return count;
  for (; *texts != '\0'; texts += std::strlen(texts) + 1) ++count;
  return count;
}

int32_t VXREng_FindMatch(const char *target, const char *texts) {
  const CallTrace trace = TraceCall();
  if (target == nullptr || *target == '\0') return 0;
  int32_t number = 1;
  for (const char *text = VXREng_GetSubString(1, texts); text != nullptr && *text != '\0';
       text += std::strlen(text) + 1, ++number) {
    if (VXREng_StrICmp(target, text) == 0) {
      VXRDbg_Log(kCheck, "####\tFound Match:found=%02d:%s:target=%s...\n", number, text, target);
      return number;
    }
    VXRDbg_Log(kFlush, "####\tFailed to find match for target=%s...\n", target);
  }
  return 0;
}

HeapText VXREng_FixString(char from, char to, const char *input) {
  const CallTrace trace = TraceCall();
  if (input == nullptr) {
    trace.Error("szInput is NULL!\n");
    return nullptr;
  }
  const SIZE_T size = std::strlen(input) + 1;
  HeapText output = AllocText(size, "szOutput");
  if (output == nullptr) return nullptr;
  std::memcpy(output.get(), input, size);
  ReplaceCharacter(from, to, output.get());
  trace.Flush("szIn =%s\n", input);
  trace.Flush("szOut=%s\n", output.get());
  return output;
}

BOOL VXREng_FixStr(char from, char to, char *text) {
  const CallTrace trace = TraceCall();
  if (text == nullptr) {
    trace.Error("szInput is NULL!\n");
    return TRUE;
  }
  trace.Flush("szIn =%s\n", text);
  ReplaceCharacter(from, to, text);
  trace.Flush("szOut=%s\n", text);
  return TRUE;
}

int VXREng_StrNICmp(const char *a, const char *b, SIZE_T count) {
  while (count > 0) {
    const SIZE_T lengthA = CharacterLength(a, count);
    const SIZE_T lengthB = CharacterLength(b, count);
    const int difference = FoldedCode(a, lengthA) - FoldedCode(b, lengthB);
    if (difference != 0 || *a == '\0') return difference;
    // Equal codes have equal lengths: a two-byte character's code is above 0xFF.
    a += lengthA;
    b += lengthB;
    count -= lengthA;
  }
  return 0;
}

int VXREng_StrICmp(const char *a, const char *b) { return VXREng_StrNICmp(a, b, SIZE_MAX); }

const char *VXREng_StrChr(const char *text, char character) {
  while (true) {
    const SIZE_T length = CharacterLength(text);
    if (length == 1 && *text == character) return text;
    if (*text == '\0') return nullptr;
    text += length;
  }
}

char *VXREng_StrChr(char *text, char character) {
  return const_cast<char *>(VXREng_StrChr(static_cast<const char *>(text), character));
}

char *FindText(char *text, const char *wanted) {
  const SIZE_T length = std::strlen(wanted);
  for (; *text != '\0'; text += CharacterLength(text)) {
    if (std::strncmp(text, wanted, length) == 0) return text;
  }
  return nullptr;
}

char *VXREng_StrUpr(char *text) {
  if (text == nullptr) return nullptr;
  const DWORD length = static_cast<DWORD>(std::strlen(text));
  return platform::CharUpperBuffA(text, length) == length ? text : nullptr;
}

char *VXREng_StrLwr(char *text) {
  if (text == nullptr) return nullptr;
  const DWORD length = static_cast<DWORD>(std::strlen(text));
  return platform::CharLowerBuffA(text, length) == length ? text : nullptr;
}

bool BeginsWith(const char *text, const char *prefix) {
  return VXREng_StrNICmp(text, prefix, std::strlen(prefix)) == 0;
}

const char *LastBackslash(const char *path) {
  const char *last = nullptr;
  for (const char *at = VXREng_StrChr(path, '\\'); at != nullptr; at = VXREng_StrChr(at + 1, '\\')) last = at;
  return last;
}

char *LastBackslash(char *path) { return const_cast<char *>(LastBackslash(static_cast<const char *>(path))); }

HeapText JoinPath(const char *directory, const char *name, SIZE_T spare, const char *purpose, const Caller &trace) {
  const SIZE_T directoryLength = std::strlen(directory);
  const SIZE_T nameSize = std::strlen(name) + 1;
  HeapText path = AllocText(directoryLength + 1 + nameSize + spare, purpose, trace);
  if (path == nullptr) return nullptr;
  std::memcpy(path.get(), directory, directoryLength);
  path.get()[directoryLength] = '\\';
  std::memcpy(path.get() + directoryLength + 1, name, nameSize);
  return path;
}
