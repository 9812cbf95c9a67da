// Opening and closing of files and disks, their sizes and attributes.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/machine/attributes.h"
#include "platform/machine/code_page.h"
#include "platform/machine/fault.h"
#include "platform/machine/handles.h"
#include "platform/machine/machine.h"
#include "platform/machine/paths.h"

namespace {

using machine::Descriptor;

HANDLE FailOpen(DWORD error) {
  platform::SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

// --- Disks -------------------------------------------------------------------------------------------------------

constexpr std::string_view kDiskPrefix = R"(\\.\PhysicalDrive)";

// The number in "\\.\PhysicalDriveN", without leading zeros as Windows names its disks.
std::optional<DWORD> DiskNumber(std::string_view name) {
  if (machine::CompareNoCase(name.substr(0, kDiskPrefix.size()), kDiskPrefix) != 0) return {};
  const std::string_view digits = name.substr(kDiskPrefix.size());
  DWORD number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool whole = failure == std::errc() && end == digits.data() + digits.size();
  return whole && (digits.size() == 1 || digits.front() != '0') ? std::optional<DWORD>(number) : std::nullopt;
}

// The described disk that the device name names; null when none.
const machine::Disk *FindDisk(std::string_view name) {
  const std::vector<machine::Disk> &disks = machine::Current()->disks;
  const std::optional<DWORD> number = DiskNumber(name);
  const auto found = std::find_if(disks.begin(), disks.end(), [&](const machine::Disk &disk) {
    if (number) return disk.number == *number;
    return !disk.interfacePath.empty() && machine::CompareNoCase(disk.interfacePath, name) == 0;
  });
  return found == disks.end() ? nullptr : &*found;
}

// Whether a name in one of the device namespaces is no file's: files are there by their drive only.
bool IsDeviceName(std::string_view name) {
  if (name.starts_with(R"(\\.\)")) return true;
  return name.starts_with(R"(\\?\)") && (name.size() < 6 || name[5] != ':');
}

// A disk without an image opens all the same: what asks for its number needs none.
HANDLE OpenDisk(std::string_view name, DWORD disposition) {
  const machine::Disk *disk = FindDisk(name);
  if (disk == nullptr) return FailOpen(ERROR_FILE_NOT_FOUND);
  if (disposition != OPEN_EXISTING) return FailOpen(ERROR_INVALID_PARAMETER);
  return machine::AddHandle(machine::DiskHandle{disk->number});
}

// --- Files -------------------------------------------------------------------------------------------------------

struct OpenRequest {
  DWORD access, disposition, attributes;
  bool Writes() const { return (access & (GENERIC_WRITE | GENERIC_ALL)) != 0; }
  bool Empties() const { return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING; }
};

int AccessFlags(const OpenRequest &request) {
  if (!request.Writes()) return O_RDONLY;
  const bool reads = (request.access & (GENERIC_READ | GENERIC_ALL)) != 0;
  return reads ? O_RDWR : O_WRONLY;
}

// What a file that exists does not let happen to it; NO_ERROR when the request may go on.
DWORD Obstacle(const OpenRequest &request, const machine::HostPlace &place) {
  struct stat status = {};
  if (fstatat(place.directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return machine::ErrorFromErrno(errno);
  }
  if (request.disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
  // Not pipes or devices either: opening one may wait, or do something.
  if (!S_ISREG(status.st_mode)) return ERROR_ACCESS_DENIED;
  const DWORD attributes = machine::ReadAttributes(machine::PlaceName(place), status);
  if ((request.Writes() || request.Empties()) && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    return ERROR_ACCESS_DENIED;
  }
  constexpr DWORD kMustBeNamed = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  const bool hides = (attributes & kMustBeNamed & ~request.attributes) != 0;
  return request.disposition == CREATE_ALWAYS && hides ? ERROR_ACCESS_DENIED : NO_ERROR;
}

HANDLE OpenPlace(const OpenRequest &request, const machine::HostPlace &place) {
  int flags = AccessFlags(request) | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  if (place.exists) {
    const DWORD obstacle = Obstacle(request, place);
    if (obstacle != NO_ERROR) return FailOpen(obstacle);
    if (request.Empties()) flags |= O_TRUNC;
  } else {
    if (request.disposition == OPEN_EXISTING || request.disposition == TRUNCATE_EXISTING) {
      return FailOpen(ERROR_FILE_NOT_FOUND);
    }
    flags |= O_CREAT | O_EXCL;
  }
  Descriptor file(openat(place.directory, place.name.c_str(), flags, 0666));
  if (!file) return FailOpen(machine::ErrorFromErrno(errno));
  if (!place.exists || request.disposition == CREATE_ALWAYS) {
    struct stat status = {};
    const DWORD attributes = request.attributes | FILE_ATTRIBUTE_ARCHIVE;
    if (fstat(file.fd, &status) != 0 || !machine::WriteAttributes(machine::PlaceName(place), status, attributes)) {
      return FailOpen(machine::ErrorFromErrno(errno));
    }
  }
  return machine::AddHandle(machine::FileHandle{std::move(file), request.Writes()});
}

}  // namespace

namespace platform {

HANDLE CreateFileA(const char *name, DWORD access, DWORD, void *, DWORD disposition, DWORD flags, HANDLE) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
  if (machine::CurrentOrNotReady() == nullptr) return INVALID_HANDLE_VALUE;
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return FailOpen(ERROR_INVALID_PARAMETER);
  if (name != nullptr && IsDeviceName(name)) return OpenDisk(name, disposition);
  const OpenRequest request = {access, disposition, flags & 0xFFFF};
  if (disposition == TRUNCATE_EXISTING && !request.Writes()) return FailOpen(ERROR_INVALID_PARAMETER);
  machine::HostPlace place;
  if (!machine::LocatePlace(name, &place)) return INVALID_HANDLE_VALUE;
  const HANDLE handle = OpenPlace(request, place);
  if (handle == INVALID_HANDLE_VALUE) return handle;
  const bool mayCreate = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  if (mayCreate) SetLastError(place.exists ? ERROR_ALREADY_EXISTS : NO_ERROR);
  return handle;
}

// A close that is made to fail closes all the same: no caller tries twice.
BOOL CloseHandle(HANDLE handle) {
  const machine::HandleRecord *record = machine::FindHandle(handle);
  const bool search = record != nullptr && std::holds_alternative<machine::SearchHandle>(*record);
  const BOOL closed = !search && machine::DropHandle(handle);
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  if (search) SetLastError(ERROR_INVALID_HANDLE);  // FindClose ends those
  return closed;
}

DWORD GetFileSize(HANDLE file, DWORD *sizeHigh) {
  VXR_FAULT(INVALID_FILE_SIZE, ERROR_INVALID_HANDLE);
  const auto *record = machine::FindHandleOf<machine::FileHandle>(file);
  struct stat status = {};
  if (record == nullptr) return INVALID_FILE_SIZE;
  if (fstat(record->file.fd, &status) != 0) {
    SetLastError(machine::ErrorFromErrno(errno));
    return INVALID_FILE_SIZE;
  }
  const auto size = static_cast<DWORD64>(status.st_size);
  if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(size >> 32);
  const auto low = static_cast<DWORD>(size);
  if (low == INVALID_FILE_SIZE) SetLastError(NO_ERROR);  // how a caller tells this size from a failure
  return low;
}

DWORD GetFileAttributesA(const char *name) {
  VXR_FAULT(INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND);
  machine::HostPlace place;
  if (!machine::LocatePlace(name, &place)) return INVALID_FILE_ATTRIBUTES;
  struct stat status = {};
  if (!place.exists || fstatat(place.directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    SetLastError(place.exists ? machine::ErrorFromErrno(errno) : ERROR_FILE_NOT_FOUND);
    return INVALID_FILE_ATTRIBUTES;
  }
  return machine::ReadAttributes(machine::PlaceName(place), status);
}

BOOL SetFileAttributesA(const char *name, DWORD attributes) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  machine::HostPlace place;
  if (!machine::LocatePlace(name, &place)) return FALSE;
  struct stat status = {};
  if (!place.exists) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
  }
  if (fstatat(place.directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      machine::WriteAttributes(machine::PlaceName(place), status, attributes)) {
    return TRUE;
  }
  SetLastError(machine::ErrorFromErrno(errno));
  return FALSE;
}

}  // namespace platform
