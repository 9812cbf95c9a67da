// Drives and their volumes: found by root or GUID path, told of, and asked for their identity and place on the disks.
#include <cstring>
#include <limits>

#include "platform/machine/base/access.h"
#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/storage.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

template <class Test>
const Drive *FindDriveIf(Test test) {
  const Description *machine = Current();
  if (machine == nullptr) return nullptr;
  const auto found = std::find_if(machine->drives.begin(), machine->drives.end(), test);
  return found == machine->drives.end() ? nullptr : &*found;
}

// --- Requests ----------------------------------------------------------------------------------------------------

// The mount manager's form: a 16-bit length in bytes, then the bytes. Of an answer that does not fit the length alone
// is stored.
Status StoreCounted(const void *bytes, std::size_t size, AnswerBuffer *answer) {
  if (size == 0) return Status::Windows(ERROR_INVALID_FUNCTION);
  if (size > std::numeric_limits<WORD>::max()) return Status::Windows(ERROR_INVALID_DATA);
  const WORD length = static_cast<WORD>(size);
  if (answer->size < sizeof length) return Status::Windows(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(answer->bytes, &length, sizeof length);
  answer->stored = sizeof length;
  if (answer->size - sizeof length < size) return Status::Windows(ERROR_MORE_DATA);
  std::memcpy(answer->bytes + sizeof length, bytes, size);
  answer->stored += length;
  return {};
}

Status AnswerUniqueId(const Drive &drive, AnswerBuffer *answer) {
  return StoreCounted(drive.uniqueId.data(), drive.uniqueId.size(), answer);
}

Status AnswerDeviceName(const Drive &drive, AnswerBuffer *answer) {
  const std::u16string name = AnsiToUtf16(drive.deviceName);
  return StoreCounted(name.data(), name.size() * sizeof(WCHAR), answer);
}

// The count is stored whenever it fits, so that the caller learns what buffer to come back with.
Status AnswerExtents(const Drive &drive, AnswerBuffer *answer) {
  constexpr std::size_t kHeader = offsetof(VOLUME_DISK_EXTENTS, Extents);
  const std::size_t count = drive.extents.size();
  if (count == 0) return Status::Windows(ERROR_INVALID_FUNCTION);
  if (answer->size < kHeader) return Status::Windows(ERROR_INSUFFICIENT_BUFFER);
  std::memset(answer->bytes, 0, kHeader);
  const DWORD storedCount = static_cast<DWORD>(count);
  std::memcpy(answer->bytes, &storedCount, sizeof storedCount);
  answer->stored = kHeader;
  const std::size_t room = (answer->size - kHeader) / sizeof(DISK_EXTENT);
  if (room < count) return Status::Windows(room == 0 ? ERROR_INSUFFICIENT_BUFFER : ERROR_MORE_DATA);
  for (const Extent &extent : drive.extents) {
    DISK_EXTENT record = {};
    record.DiskNumber = extent.disk;
    record.StartingOffset.QuadPart = extent.start;
    record.ExtentLength.QuadPart = extent.length;
    std::memcpy(answer->bytes + answer->stored, &record, sizeof record);
    answer->stored += sizeof record;
  }
  return {};
}

constexpr Request<Drive> kVolumeRequests[] = {
    {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, AnswerUniqueId},
    {IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, AnswerDeviceName},
    {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, AnswerExtents},
};

}  // namespace

const Drive *FindDrive(char letter) {
  return FindDriveIf([=](const Drive &drive) { return drive.root.front() == letter; });
}

const Drive *FindDrive(std::string_view root) {
  return FindDriveIf([=](const Drive &drive) {
    if (CompareNoCase(root, drive.root) == 0) return true;
    if (drive.guidPath.empty() || !root.ends_with('\\')) return false;
    // The machine file may give the path without its backslash.
    const bool complete = drive.guidPath.back() == '\\';
    return CompareNoCase(complete ? root : root.substr(0, root.size() - 1), drive.guidPath) == 0;
  });
}

Status OpenVolume(const Drive &drive, DWORD access, HANDLE *handle) {
  if (GrantsReading(access) || GrantsWriting(access)) return Status::Windows(ERROR_ACCESS_DENIED);
  *handle = AddHandle(VolumeHandle{drive.root.front()});
  return {};
}

Status AnswerVolumeRequest(char letter, DWORD code, AnswerBuffer *answer) {
  return AnswerRequest(kVolumeRequests, FindDrive(letter), code, answer);
}

}  // namespace machine

namespace {

using machine::FailWith;
using machine::Status;

// The drive of a root that a call of this file names.
Status FindNamedDrive(const char *root, const machine::Drive **drive) {
  if (machine::Current() == nullptr) return Status::Windows(ERROR_NOT_READY);
  const std::string_view name = root == nullptr ? "" : root;
  if (!name.ends_with('\\')) return Status::Windows(ERROR_INVALID_NAME);
  *drive = machine::FindDrive(name);
  return *drive != nullptr ? Status() : Status::Windows(ERROR_PATH_NOT_FOUND);
}

bool Fits(const std::string &text, const char *buffer, DWORD size) { return buffer == nullptr || text.size() < size; }

void Store(const std::string &text, char *buffer) {
  if (buffer != nullptr) std::memcpy(buffer, text.c_str(), text.size() + 1);
}

void Store(DWORD number, DWORD *target) {
  if (target != nullptr) *target = number;
}

}  // namespace

namespace platform {

DWORD GetLogicalDriveStringsA(DWORD size, char *buffer) {
  VXR_FAULT(0, ERROR_NOT_ENOUGH_MEMORY);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY, 0);
  std::vector<std::string> roots;
  for (const machine::Drive &drive : machine->drives) roots.push_back(drive.root);
  std::sort(roots.begin(), roots.end());
  std::string list;
  for (const std::string &root : roots) list += machine::WithTerminator(root);
  const auto length = static_cast<DWORD>(list.size());
  if (buffer == nullptr || size <= length) return length + 1;
  std::memcpy(buffer, list.c_str(), length + 1);
  return length;
}

BOOL GetVolumeInformationA(const char *root, char *label, DWORD labelSize, DWORD *serial, DWORD *maxComponent,
                           DWORD *flags, char *fileSystem, DWORD fileSystemSize) {
  VXR_FAULT(FALSE, ERROR_NOT_READY);
  const machine::Drive *drive = nullptr;
  if (const Status found = FindNamedDrive(root, &drive); !found) return FailWith(found);
  if (drive->path.empty()) return FailWith(ERROR_NOT_READY);
  if (!Fits(drive->label, label, labelSize) || !Fits(drive->fileSystem, fileSystem, fileSystemSize)) {
    return FailWith(ERROR_BAD_LENGTH);
  }
  Store(drive->label, label);
  Store(drive->serial, serial);
  Store(drive->maxComponent, maxComponent);
  Store(drive->flags, flags);
  Store(drive->fileSystem, fileSystem);
  return TRUE;
}

BOOL GetVolumeNameForVolumeMountPointA(const char *mountPoint, char *name, DWORD size) {
  VXR_FAULT(FALSE, ERROR_FILE_NOT_FOUND);
  const machine::Drive *drive = nullptr;
  if (const Status found = FindNamedDrive(mountPoint, &drive); !found) return FailWith(found);
  if (drive->guidPath.empty()) return FailWith(ERROR_FILE_NOT_FOUND);
  if (name == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  std::string path = drive->guidPath;
  if (path.back() != '\\') path += '\\';
  if (!Fits(path, name, size)) return FailWith(ERROR_FILENAME_EXCED_RANGE);
  Store(path, name);
  return TRUE;
}

}  // namespace platform
