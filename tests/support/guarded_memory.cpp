#include "tests/support/guarded_memory.h"

#include <cstring>
#ifdef _WIN32
#include "platform/platform.h"
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

#ifdef _WIN32
size_t PageSize() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

void *Reserve(size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); }

void Guard(void *pages, size_t size, bool readable) {
  DWORD old = 0;
  VirtualProtect(pages, size, readable ? PAGE_READONLY : PAGE_NOACCESS, &old);
}

void Release(void *pages, size_t) { VirtualFree(pages, 0, MEM_RELEASE); }
#else
size_t PageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

void *Reserve(size_t size) { return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); }

void Guard(void *pages, size_t size, bool readable) { mprotect(pages, size, readable ? PROT_READ : PROT_NONE); }

void Release(void *pages, size_t size) { munmap(pages, size); }
#endif

}  // namespace

GuardedMemory::GuardedMemory(const std::vector<uint8_t> &bytes, size_t slack) {
  const size_t page = PageSize();
  const size_t readable = (bytes.size() + slack + page - 1) / page * page;
  length = readable + page;
  pages = static_cast<uint8_t *>(Reserve(length));
  uint8_t *at = pages + readable - slack - bytes.size();
  std::memcpy(at, bytes.data(), bytes.size());
  Guard(pages, readable, true);
  Guard(pages + readable, page, false);
  begin = at;
}

GuardedMemory::~GuardedMemory() { Release(pages, length); }
