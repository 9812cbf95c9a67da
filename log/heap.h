// Memory of the process heap: zero-filled, freed by whoever holds the pointer. Texts and records that functions return
// come as these owning pointers; a record's raw pointer member takes one over with release().
#pragma once

#include <memory>

#include "platform/platform.h"

struct HeapFreeDeleter {
  void operator()(void *memory) const { platform::HeapFree(platform::GetProcessHeap(), 0, memory); }
};

template <typename T>
using HeapPtr = std::unique_ptr<T, HeapFreeDeleter>;
using HeapText = HeapPtr<char>;

// Zero-filled memory of `bytes` bytes, or null after logging
// "ERROR:<caller>:AllocHeap(<bytes> bytes) failed for <purpose>:ec=..." at level 0.
void *AllocHeap(SIZE_T bytes, const char *purpose, const char *caller = __builtin_FUNCTION());

template <typename T>
HeapPtr<T> AllocRecord(const char *purpose, const char *caller = __builtin_FUNCTION()) {
  return HeapPtr<T>(static_cast<T *>(AllocHeap(sizeof(T), purpose, caller)));
}

inline HeapText AllocText(SIZE_T bytes, const char *purpose, const char *caller = __builtin_FUNCTION()) {
  return HeapText(static_cast<char *>(AllocHeap(bytes, purpose, caller)));
}

// Frees an owned member and clears it.
template <typename T>
void FreeMember(T *&member) {
  HeapFreeDeleter()(member);
  member = nullptr;
}
