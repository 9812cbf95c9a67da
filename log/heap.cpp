#include "log/heap.h"

#include "log/log.h"

void *AllocHeap(SIZE_T bytes, const char *purpose, const Caller &trace, SIZE_T spare) {
  void *memory = platform::HeapAlloc(platform::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes + spare);
  if (memory == nullptr) {
    const DWORD code = platform::GetLastError();
    trace.ErrorOf("AllocHeap", code, "AllocHeap(%d bytes) failed for %s:ec=%d:0x%08X\n", static_cast<DWORD>(bytes),
                  purpose, code, code);
  }
  return memory;
}
