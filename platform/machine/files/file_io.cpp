// Reading, writing and moving about in files and disks. A handle keeps its position itself: mappings share the
// descriptor's.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"

namespace {

using machine::FailWith;
using machine::Status;

// What bytes of a handle can be transferred.
struct Medium {
  machine::FileHandle *file = nullptr;  // of a disk its image
  DWORD sectorSize = 0;                 // bytes; 0: a file, which has no sectors
};

// Without a file when the handle is of neither.
Medium FindMedium(HANDLE handle) {
  machine::HandleRecord *record = machine::FindHandle(handle);
  if (record == nullptr) return {};
  if (auto *file = std::get_if<machine::FileHandle>(record)) return {file, 0};
  if (auto *disk = std::get_if<machine::DiskHandle>(record)) return {&disk->image, disk->sectorSize};
  return {};
}

// Bytes of a file or disk, or -1 with errno set. Block devices tell their size in this way only.
std::int64_t SizeOf(const machine::FileHandle &file) { return lseek(file.file.fd, 0, SEEK_END); }

// Whether a disk can transfer so many bytes at its position.
Status CheckSectors(const Medium &medium, DWORD size) {
  const std::uint64_t position = medium.file->position;
  if (position % medium.sectorSize != 0 || size % medium.sectorSize != 0) {
    return Status::Windows(ERROR_INVALID_PARAMETER);
  }
  const std::int64_t end = SizeOf(*medium.file);
  if (end < 0) return Status::System();
  const auto total = static_cast<std::uint64_t>(end);
  return position <= total && size <= total - position ? Status() : Status::Windows(ERROR_SECTOR_NOT_FOUND);
}

// Calls `step` (bytes done, host offset; as pread and pwrite) until all is transferred, or no more is, which is the
// status `incomplete`. After a failure the position is the old one, and `*transferred` says
// how much was done all the same.
template <class Step>
Status Transfer(const Medium &medium, DWORD size, DWORD *transferred, const Status &incomplete, Step step) {
  Status status = medium.sectorSize == 0 ? Status() : CheckSectors(medium, size);
  if (!status) return status;
  DWORD done = 0;
  while (done < size && status) {
    const ssize_t count = step(done, static_cast<off_t>(medium.file->position + done));
    if (count > 0) {
      done += static_cast<DWORD>(count);
    } else if (count == 0) {
      status = incomplete;
      break;
    } else if (errno != EINTR) {
      status = Status::System();
    }
  }
  if (transferred != nullptr) *transferred = done;
  if (status) medium.file->position += done;
  return status;
}

// The signed distance of both halves, or of the one alone.
std::int64_t Distance(LONG low, const LONG *high) {
  if (high == nullptr) return low;
  return static_cast<std::int64_t>(static_cast<DWORD64>(static_cast<DWORD>(*high)) << 32 | static_cast<DWORD>(low));
}

// Where the target is counted from.
Status FindOrigin(const machine::FileHandle &file, DWORD method, std::int64_t *origin) {
  if (method > FILE_END) return Status::Windows(ERROR_INVALID_PARAMETER);
  *origin = method == FILE_BEGIN ? 0 : method == FILE_CURRENT ? static_cast<std::int64_t>(file.position) : SizeOf(file);
  return *origin >= 0 ? Status() : Status::System();
}

template <typename Failure>
DWORD FailMove(const Failure &failure) {
  return FailWith(failure, INVALID_SET_FILE_POINTER);
}

}  // namespace

namespace platform {

BOOL ReadFile(HANDLE file, void *buffer, DWORD size, DWORD *read, void *) {
  if (read != nullptr) *read = 0;
  VXR_FAULT(FALSE, ERROR_IO_DEVICE);
  const Medium medium = FindMedium(file);
  if (medium.file == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (!medium.file->readable) return FailWith(ERROR_ACCESS_DENIED);
  if (buffer == nullptr && size != 0) return FailWith(ERROR_NOACCESS);
  const Status atEnd = medium.sectorSize == 0 ? Status() : Status::Windows(ERROR_SECTOR_NOT_FOUND);
  return machine::Finish(Transfer(medium, size, read, atEnd, [&](DWORD done, off_t offset) {
    return pread(medium.file->file.fd, static_cast<BYTE *>(buffer) + done, size - done, offset);
  }));
}

BOOL WriteFile(HANDLE file, const void *buffer, DWORD size, DWORD *written, void *) {
  if (written != nullptr) *written = 0;
  VXR_FAULT(FALSE, ERROR_IO_DEVICE);
  const Medium medium = FindMedium(file);
  if (medium.file == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (!medium.file->writable) return FailWith(ERROR_ACCESS_DENIED);
  if (machine::Rehearsing()) return FailWith(ERROR_WRITE_PROTECT);
  if (buffer == nullptr && size != 0) return FailWith(ERROR_INVALID_USER_BUFFER);
  const Status full = Status::Windows(ERROR_DISK_FULL);
  return machine::Finish(Transfer(medium, size, written, full, [&](DWORD done, off_t offset) {
    return pwrite(medium.file->file.fd, static_cast<const BYTE *>(buffer) + done, size - done, offset);
  }));
}

// Past a file's end it may be moved, even to where no file can reach: the transfer there fails.
DWORD SetFilePointer(HANDLE file, LONG distance, LONG *distanceHigh, DWORD method) {
  VXR_FAULT(INVALID_SET_FILE_POINTER, ERROR_INVALID_PARAMETER);
  const Medium medium = FindMedium(file);
  if (medium.file == nullptr) return FailMove(ERROR_INVALID_HANDLE);
  std::int64_t origin = 0, target = 0;
  if (const Status found = FindOrigin(*medium.file, method, &origin); !found) return FailMove(found);
  if (__builtin_add_overflow(origin, Distance(distance, distanceHigh), &target)) {
    return FailMove(ERROR_INVALID_PARAMETER);
  }
  if (target < 0) return FailMove(ERROR_NEGATIVE_SEEK);
  // Without a place for its high half a position must do without one.
  if (distanceHigh == nullptr && target > UINT32_MAX) return FailMove(ERROR_INVALID_PARAMETER);
  medium.file->position = static_cast<std::uint64_t>(target);
  if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(target >> 32);
  const auto low = static_cast<DWORD>(target);
  if (low == INVALID_SET_FILE_POINTER) SetLastError(NO_ERROR);  // how a caller tells this position from a failure
  return low;
}

BOOL FlushFileBuffers(HANDLE file) {
  VXR_FAULT(FALSE, ERROR_IO_DEVICE);
  const Medium medium = FindMedium(file);
  if (medium.file == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (!medium.file->writable) return FailWith(ERROR_ACCESS_DENIED);
  return fsync(medium.file->file.fd) == 0 ? TRUE : FailWith(Status::System());
}

}  // namespace platform
