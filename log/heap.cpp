#include "log/heap.h"

#include "log/log.h"

void *AllocHeap(SIZE_T bytes, const char *purpose, const char *caller, SIZE_T spare) {
  void *memory = platform::HeapAlloc(platform::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes + spare);
  if (memory == nullptr) {
    const DWORD code = platform::GetLastError();
    VXRDbg_Log(kError, "ERROR:%s:AllocHeap(%d bytes) failed for %s:ec=%d:0x%08X\n", caller, static_cast<DWORD>(bytes),
               purpose, code, code);
  }
  return memory;
}

void LogFreeing(const char *line, const char *caller, const void *member) { VXRDbg_Log(kInfo, line, caller, member); }
