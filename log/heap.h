// Memory of the process heap: zero-filled, freed by whoever holds the pointer. Texts and records that functions return
// come as these owning pointers; a record's raw pointer member takes one over with release().
#pragma once

#include <memory>

#include "log/log.h"
#include "platform/platform.h"

struct HeapFreeDeleter {
  void operator()(void *memory) const { platform::HeapFree(platform::GetProcessHeap(), 0, memory); }
};

template <typename T>
using HeapPtr = std::unique_ptr<T, HeapFreeDeleter>;
using HeapText = HeapPtr<char>;

// Zero-filled memory of `bytes` bytes and `spare` more, or null after logging
// "ERROR:<caller>:AllocHeap(<bytes> bytes) failed for <purpose>:ec=<code>:<code>\n" at level 0. The last error is then
// ERROR_NOT_ENOUGH_MEMORY.
void *AllocHeap(SIZE_T bytes, const char *purpose, const Caller &trace = {__builtin_FUNCTION()}, SIZE_T spare = 0);

// A zero-filled record, or null after the same line.
template <typename T>
HeapPtr<T> AllocRecord(const char *purpose, const Caller &trace = {__builtin_FUNCTION()}) {
  return HeapPtr<T>(static_cast<T *>(AllocHeap(sizeof(T), purpose, trace)));
}

// A zero-filled buffer of `bytes` bytes and `spare` more, or null after the same line.
inline HeapText AllocText(SIZE_T bytes, const char *purpose, const Caller &trace = {__builtin_FUNCTION()},
                          SIZE_T spare = 0) {
  return HeapText(static_cast<char *>(AllocHeap(bytes, purpose, trace, spare)));
}

// The same without the line, for a caller that has a line of its own, or none.
inline HeapText AllocTextUnlogged(SIZE_T bytes) {
  return HeapText(static_cast<char *>(platform::HeapAlloc(platform::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes)));
}

// Frees an owned member and clears it. Null is ignored.
template <typename T>
void FreeMember(T *&member) {
  if (member == nullptr) return;
  HeapFreeDeleter()(member);
  member = nullptr;
}

// Frees an owned member that is set and clears it, after logging `line` at level 4, such as "freeing szDriver=%s\n".
template <typename T>
void FreeLogged(T *&member, const char *line, const Caller &trace = {__builtin_FUNCTION()}) {
  if (member == nullptr) return;
  trace.Info(line, member);
  FreeMember(member);
}
