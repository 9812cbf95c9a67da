// Disks: found by number or name, opened, and asked for their number and geometry.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>

#include "platform/machine/base/access.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/files/disk_index.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/files/storage.h"
#include "platform/machine/host/attributes.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr std::string_view kDiskPrefix = R"(\\.\PhysicalDrive)";

// The number in "\\.\PhysicalDriveN", without leading zeros as Windows names its disks.
std::optional<DWORD> DiskNumber(std::string_view name) {
  if (CompareNoCase(name.substr(0, kDiskPrefix.size()), kDiskPrefix) != 0) return {};
  const std::string_view digits = name.substr(kDiskPrefix.size());
  DWORD number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool whole = failure == std::errc() && end == digits.data() + digits.size();
  return whole && (digits.size() == 1 || digits.front() != '0') ? std::optional<DWORD>(number) : std::nullopt;
}

// The image, opened for as much as the rights ask. Opening it for writing leaves its times alone.
Status OpenImage(const Disk &disk, DWORD access, FileHandle *image) {
  if (!disk.image) return Status::Windows(ERROR_NOT_READY);
  image->readable = GrantsReading(access);
  image->writable = GrantsWriting(access);
  image->file = Descriptor(open(disk.image->c_str(), AccessFlags(access) | O_CLOEXEC | O_NONBLOCK));
  struct stat status = {};
  if (!image->file || fstat(image->file.fd, &status) != 0) return Status::System();
  // The superuser could write to it all the same, but whoever took the permission away wants it kept.
  return image->writable && (status.st_mode & kWriteBits) == 0 ? Status::Windows(ERROR_WRITE_PROTECT) : Status();
}

// --- Requests ----------------------------------------------------------------------------------------------------

template <class Record>
Status Store(const Record &record, AnswerBuffer *answer) {
  if (answer->size < sizeof record) return Status::Windows(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(answer->bytes, &record, sizeof record);
  answer->stored = sizeof record;
  return {};
}

// Windows answers with partition 0 for a whole disk.
Status AnswerNumber(const Disk &disk, AnswerBuffer *answer) {
  return Store(STORAGE_DEVICE_NUMBER{FILE_DEVICE_DISK, disk.number, 0}, answer);
}

// Zeros are a geometry that nobody described: who took them for the disk's would write them into a boot sector.
Status AnswerGeometry(const Disk &disk, AnswerBuffer *answer) {
  if (disk.heads == 0) return Status::Windows(ERROR_INVALID_FUNCTION);
  DISK_GEOMETRY geometry = {};
  geometry.Cylinders.QuadPart = static_cast<LONG64>(disk.cylinders);
  geometry.MediaType = FixedMedia;
  geometry.TracksPerCylinder = disk.heads;
  geometry.SectorsPerTrack = disk.sectors;
  geometry.BytesPerSector = disk.bytes;
  return Store(geometry, answer);
}

constexpr Request<Disk> kDiskRequests[] = {
    {IOCTL_STORAGE_GET_DEVICE_NUMBER, AnswerNumber},
    {IOCTL_DISK_GET_DRIVE_GEOMETRY, AnswerGeometry},
};

}  // namespace

const Disk *FindDisk(std::string_view name) {
  const std::optional<DWORD> number = DiskNumber(name);
  return number ? FindDiskByNumber(*number) : FindDiskByInterface(name);
}

Status OpenDisk(const Disk &disk, DWORD access, HANDLE *handle) {
  DiskHandle record = {disk.number, {}, disk.bytes};
  const bool transfers = GrantsReading(access) || GrantsWriting(access);
  Status opened = transfers ? OpenImage(disk, access, &record.image) : Status();
  if (opened) *handle = AddHandle(std::move(record));
  return opened;
}

Status AnswerDiskRequest(DWORD number, DWORD code, AnswerBuffer *answer) {
  return AnswerRequest(kDiskRequests, FindDiskByNumber(number), code, answer);
}

}  // namespace machine
