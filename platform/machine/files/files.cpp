// Opening and closing of files; their sizes, attributes and times.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/machine/base/access.h"
#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/files/storage.h"
#include "platform/machine/host/attributes.h"
#include "platform/machine/host/rehearsal.h"

namespace {

using machine::Descriptor;
using machine::FailOpen;
using machine::FailWith;
using machine::Status;

struct OpenRequest {
  DWORD access, disposition, attributes;
  bool Writes() const { return machine::GrantsWriting(access); }
  bool Empties() const { return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING; }
};

// Whether a file that exists lets the request happen to it.
Status MayOpen(const OpenRequest &request, const machine::HostPlace &place) {
  struct stat status = {};
  if (fstatat(place.directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return Status::System();
  if (request.disposition == CREATE_NEW) return Status::Windows(ERROR_FILE_EXISTS);
  // Not pipes or devices either: opening one may wait, or do something.
  if (!S_ISREG(status.st_mode)) return Status::Windows(ERROR_ACCESS_DENIED);
  const DWORD attributes = machine::ReadAttributes(machine::PlaceName(place), status);
  if ((request.Writes() || request.Empties()) && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    return Status::Windows(ERROR_ACCESS_DENIED);
  }
  constexpr DWORD kMustBeNamed = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  const bool hides = (attributes & kMustBeNamed & ~request.attributes) != 0;
  return request.disposition == CREATE_ALWAYS && hides ? Status::Windows(ERROR_ACCESS_DENIED) : Status();
}

Status OpenPlace(const OpenRequest &request, const machine::HostPlace &place, HANDLE *handle) {
  int flags = machine::AccessFlags(request.access) | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  if (place.exists) {
    if (Status may = MayOpen(request, place); !may) return may;
    if (request.Empties()) flags |= O_TRUNC;
  } else {
    if (request.disposition == OPEN_EXISTING || request.disposition == TRUNCATE_EXISTING) {
      return Status::Windows(ERROR_FILE_NOT_FOUND);
    }
    flags |= O_CREAT | O_EXCL;
  }
  if (machine::Rehearsing() && (flags & (O_CREAT | O_TRUNC)) != 0) return Status::Windows(ERROR_WRITE_PROTECT);
  Descriptor file(openat(place.directory, place.name.c_str(), flags, 0666));
  if (!file) return Status::System();
  if (!place.exists || request.disposition == CREATE_ALWAYS) {
    struct stat status = {};
    const DWORD attributes = request.attributes | FILE_ATTRIBUTE_ARCHIVE;
    if (fstat(file.fd, &status) != 0) return Status::System();
    if (Status given = machine::WriteAttributes(machine::PlaceName(place), status, attributes); !given) return given;
  }
  *handle = machine::AddHandle(
      machine::FileHandle{std::move(file), machine::GrantsReading(request.access), request.Writes(), 0});
  return {};
}

// As LocatePlace, of what exists.
Status LocateExisting(const char *name, machine::HostPlace *place) {
  if (Status located = machine::LocatePlace(name, place); !located) return located;
  return place->exists ? Status() : Status::Windows(ERROR_FILE_NOT_FOUND);
}

// Where the file system does not keep it, the time of the last write stands in.
FILETIME CreationTime(const machine::HostPlace &place) {
  struct statx more = {};
  const bool told = statx(place.directory, place.name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &more) == 0 &&
                    (more.stx_mask & STATX_BTIME) != 0;
  return told ? machine::FileTimeOf(more.stx_btime.tv_sec, more.stx_btime.tv_nsec)
              : machine::FileTimeOf(place.status.st_mtim);
}

}  // namespace

namespace platform {

HANDLE CreateFileA(const char *name, DWORD access, DWORD, void *, DWORD disposition, DWORD flags, HANDLE) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
  if (machine::Current() == nullptr) return FailOpen(ERROR_NOT_READY);
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return FailOpen(ERROR_INVALID_PARAMETER);
  HANDLE handle = nullptr;
  if (name != nullptr && machine::NamesDevice(name)) {
    const Status opened = machine::OpenDevice(name, access, disposition, &handle);
    if (!opened) return FailOpen(opened);
    SetLastError(NO_ERROR);
    return handle;
  }
  const OpenRequest request = {access, disposition, flags & 0xFFFF};
  if (disposition == TRUNCATE_EXISTING && !request.Writes()) return FailOpen(ERROR_INVALID_PARAMETER);
  machine::HostPlace place;
  if (const Status located = machine::LocatePlace(name, &place); !located) return FailOpen(located);
  if (const Status opened = OpenPlace(request, place, &handle); !opened) return FailOpen(opened);
  const bool mayCreate = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  SetLastError(mayCreate && place.exists ? ERROR_ALREADY_EXISTS : NO_ERROR);
  return handle;
}

// A close that is made to fail closes all the same: no caller tries twice.
BOOL CloseHandle(HANDLE handle) {
  const machine::HandleRecord *record = machine::FindHandle(handle);
  const bool search = record != nullptr && std::holds_alternative<machine::SearchHandle>(*record);
  const bool closed = !search && machine::DropHandle(handle);  // FindClose ends those
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  return closed ? TRUE : FailWith(ERROR_INVALID_HANDLE);
}

DWORD GetFileSize(HANDLE file, DWORD *sizeHigh) {
  VXR_FAULT(INVALID_FILE_SIZE, ERROR_INVALID_HANDLE);
  const auto *record = machine::FindHandleOf<machine::FileHandle>(file);
  struct stat status = {};
  if (record == nullptr) return FailWith(ERROR_INVALID_HANDLE, INVALID_FILE_SIZE);
  if (fstat(record->file.fd, &status) != 0) return FailWith(Status::System(), INVALID_FILE_SIZE);
  const auto size = static_cast<DWORD64>(status.st_size);
  if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(size >> 32);
  const auto low = static_cast<DWORD>(size);
  if (low == INVALID_FILE_SIZE) SetLastError(NO_ERROR);  // how a caller tells this size from a failure
  return low;
}

DWORD GetFileAttributesA(const char *name) {
  VXR_FAULT(INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND);
  machine::HostPlace place;
  const Status located = LocateExisting(name, &place);
  if (located) return machine::ReadAttributes(machine::PlaceName(place), place.status);
  const bool rehearsed = place.directory >= 0 && machine::WouldBeDirectory(place.directory, place.name);
  return rehearsed ? FILE_ATTRIBUTE_DIRECTORY : FailWith(located, INVALID_FILE_ATTRIBUTES);
}

BOOL SetFileAttributesA(const char *name, DWORD attributes) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  machine::HostPlace place;
  if (const Status located = LocateExisting(name, &place); !located) return FailWith(located);
  return machine::Finish(machine::Rehearsing()
                             ? machine::RehearseAttributes(place.status, attributes)
                             : machine::WriteAttributes(machine::PlaceName(place), place.status, attributes));
}

BOOL GetFileAttributesExA(const char *name, GET_FILEEX_INFO_LEVELS level, void *data) {
  VXR_FAULT(FALSE, ERROR_FILE_NOT_FOUND);
  machine::HostPlace place;
  if (level != GetFileExInfoStandard || data == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (const Status located = LocateExisting(name, &place); !located) return FailWith(located);
  const struct stat &status = place.status;
  const DWORD64 size = S_ISREG(status.st_mode) ? static_cast<DWORD64>(status.st_size) : 0;
  WIN32_FILE_ATTRIBUTE_DATA facts = {};
  facts.dwFileAttributes = machine::ReadAttributes(machine::PlaceName(place), status);
  facts.ftCreationTime = CreationTime(place);
  facts.ftLastAccessTime = machine::FileTimeOf(status.st_atim);
  facts.ftLastWriteTime = machine::FileTimeOf(status.st_mtim);
  facts.nFileSizeHigh = static_cast<DWORD>(size >> 32);
  facts.nFileSizeLow = static_cast<DWORD>(size);
  std::memcpy(data, &facts, sizeof facts);
  return TRUE;
}

}  // namespace platform
