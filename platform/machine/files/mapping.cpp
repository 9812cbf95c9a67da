// File mappings and their views. A mapping's name is not used: nothing opens one by its name.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <map>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"

namespace {

using machine::FailWith;
using machine::Status;

constexpr DWORD64 kAllocationGranularity = 65536;  // where Windows lets views begin

std::map<const void *, SIZE_T> g_views;  // address to length: munmap needs both

DWORD64 FromHalves(DWORD high, DWORD low) { return DWORD64{high} << 32 | low; }

// The size a mapping gets, the file's when it is 0; a larger one than the file's makes the file grow.
Status FitSize(const machine::FileHandle &file, bool writable, DWORD64 *size) {
  struct stat status = {};
  if (fstat(file.file.fd, &status) != 0) return Status::System();
  const auto present = static_cast<DWORD64>(status.st_size);
  if (*size == 0) *size = present;
  if (*size == 0) return Status::Windows(ERROR_FILE_INVALID);
  if (*size <= present) return {};
  if (!writable) return Status::Windows(ERROR_NOT_ENOUGH_MEMORY);  // what Windows says here
  if (machine::Rehearsing()) return Status::Windows(ERROR_WRITE_PROTECT);
  if (*size > static_cast<DWORD64>(std::numeric_limits<off_t>::max())) return Status::Windows(ERROR_DISK_FULL);
  // Allocated, not just made longer: writing to a hole on a full disk would end the process.
  const int failure = posix_fallocate(file.file.fd, 0, static_cast<off_t>(*size));
  return failure == 0 ? Status() : Status::System({}, failure);
}

}  // namespace

namespace machine {

std::size_t OpenViews() { return g_views.size(); }

}  // namespace machine

namespace platform {

HANDLE CreateFileMappingA(HANDLE file, void *, DWORD protect, DWORD sizeHigh, DWORD sizeLow, const char *) {
  VXR_FAULT(nullptr, ERROR_NOT_ENOUGH_MEMORY);
  if (protect != PAGE_READWRITE && protect != PAGE_READONLY) return FailWith(ERROR_INVALID_PARAMETER, nullptr);
  // Memory without a file, which is not kept here; Windows refuses it as well while it has no size.
  if (file == INVALID_HANDLE_VALUE) return FailWith(ERROR_INVALID_PARAMETER, nullptr);
  const auto *record = machine::FindHandleOf<machine::FileHandle>(file);
  if (record == nullptr) return FailWith(ERROR_INVALID_HANDLE, nullptr);
  const bool writable = protect == PAGE_READWRITE;
  const int access = fcntl(record->file.fd, F_GETFL) & O_ACCMODE;
  if (access == O_WRONLY || (writable && access != O_RDWR)) return FailWith(ERROR_ACCESS_DENIED, nullptr);
  DWORD64 size = FromHalves(sizeHigh, sizeLow);
  if (const Status fits = FitSize(*record, writable, &size); !fits) return FailWith(fits, nullptr);
  machine::Descriptor own(fcntl(record->file.fd, F_DUPFD_CLOEXEC, 0));
  if (!own) return FailWith(Status::System(), nullptr);
  SetLastError(NO_ERROR);  // no mapping of that name was there
  return machine::AddHandle(machine::MappingHandle{std::move(own), size, writable});
}

void *MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T length) {
  VXR_FAULT(nullptr, ERROR_NOT_ENOUGH_MEMORY);
  const auto *record = machine::FindHandleOf<machine::MappingHandle>(mapping);
  if (record == nullptr) return FailWith(ERROR_INVALID_HANDLE, nullptr);
  const bool writes = (access & FILE_MAP_WRITE) != 0;
  if (!writes && (access & FILE_MAP_READ) == 0) return FailWith(ERROR_INVALID_PARAMETER, nullptr);
  if (writes && !record->writable) return FailWith(ERROR_ACCESS_DENIED, nullptr);
  const DWORD64 offset = FromHalves(offsetHigh, offsetLow);
  if (offset % kAllocationGranularity != 0) return FailWith(ERROR_MAPPED_ALIGNMENT, nullptr);
  if (offset >= record->size || length > record->size - offset) return FailWith(ERROR_ACCESS_DENIED, nullptr);
  if (length == 0) length = record->size - offset;
  // What a rehearsal writes is seen through the view and stays out of the file.
  void *view = mmap(nullptr, length, writes ? PROT_READ | PROT_WRITE : PROT_READ,
                    machine::Rehearsing() ? MAP_PRIVATE : MAP_SHARED, record->file.fd, static_cast<off_t>(offset));
  if (view == MAP_FAILED) return FailWith(Status::System(), nullptr);
  g_views.emplace(view, length);
  return view;
}

// As with CloseHandle, one that is made to fail unmaps all the same.
BOOL UnmapViewOfFile(const void *view) {
  const auto found = g_views.find(view);
  const bool mapped = found != g_views.end();
  if (mapped) {
    munmap(const_cast<void *>(view), found->second);
    g_views.erase(found);
  }
  VXR_FAULT(FALSE, ERROR_INVALID_ADDRESS);
  return mapped ? TRUE : FailWith(ERROR_INVALID_ADDRESS);
}

}  // namespace platform
