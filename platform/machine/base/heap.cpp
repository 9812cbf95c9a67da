// The process heap: the C library's, so that the sanitizers see every leak and overrun.
#include <cstdint>
#include <cstdlib>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/platform.h"

namespace platform {

HANDLE GetProcessHeap() {
  static char heap;
  return &heap;
}

void *HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
  VXR_FAULT(nullptr, ERROR_NOT_ENOUGH_MEMORY);
  if (heap != GetProcessHeap()) return machine::FailWith(ERROR_INVALID_HANDLE, nullptr);
  // A sanitizer would end the program on a size that no object can have; here it is a request that fails.
  void *memory = nullptr;
  if (size <= PTRDIFF_MAX / 2) {
    const SIZE_T bytes = size == 0 ? 1 : size;
    memory = (flags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, bytes) : std::malloc(bytes);
  }
  return memory != nullptr ? memory : machine::FailWith(ERROR_NOT_ENOUGH_MEMORY, nullptr);
}

// No fault point: freeing a valid block cannot fail, and a block kept on purpose would look like a leak of the caller.
BOOL HeapFree(HANDLE heap, DWORD, void *memory) {
  if (heap != GetProcessHeap()) return machine::FailWith(ERROR_INVALID_HANDLE);
  std::free(memory);
  return TRUE;
}

}  // namespace platform
