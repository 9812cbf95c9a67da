#include "rescue/ntfs_volume.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/file_kind.h"
#include "platform/machine/base/little_endian.h"
#include "platform/machine/host/file_bytes.h"

namespace rescue {
namespace {

using machine::ReadLe16;
using machine::ReadLe32;
using machine::ReadLe64;
using machine::Status;

constexpr std::size_t kBootSize = 512, kName = 3, kNameSize = 8, kBootMark = 510;
constexpr std::size_t kSectorSize = 11, kClusterSectors = 13, kTableCluster = 48, kRecordClusters = 64;
constexpr std::uint32_t kSmallestSector = 256, kLargestSector = 4096, kLargestCluster = 2 << 20;
constexpr std::uint32_t kSmallestRecord = 512, kLargestRecord = 64 << 10;

// In a file record.
constexpr std::size_t kFixupOffset = 4, kFixupCount = 6, kFirstAttribute = 20, kUsedSize = 24;
constexpr std::size_t kStride = 512;  // each ends in two bytes that the fixups replace
constexpr std::size_t kVolumeRecord = 3;
constexpr std::uint32_t kVolumeInformation = 0x70, kEndOfAttributes = 0xFFFFFFFF;

// In an attribute that lies in its record, and in its value.
constexpr std::size_t kAttributeHeader = 24, kLength = 4, kNonResident = 8, kValueSize = 16, kValueOffset = 20;
constexpr std::size_t kVolumeFlags = 10;
constexpr std::uint32_t kDirty = 1;

Status Contradicts() { return Status::Refused("is a damaged NTFS volume"); }

// Bytes of what is counted in units, or as a power of two where the number is negative; 0 when it cannot be.
std::uint64_t SizeOf(std::uint8_t count, std::uint32_t unit) {
  const auto power = -static_cast<std::int8_t>(count);
  if (power <= 0) return std::uint64_t{count} * unit;
  return power < 32 ? std::uint64_t{1} << power : 0;
}

// Where the record of the volume's own facts lies.
struct RecordPlace {
  std::uint64_t offset = 0;
  std::size_t size = 0;
};

bool FindVolumeRecord(const std::uint8_t *boot, RecordPlace *place) {
  const std::uint32_t sector = ReadLe16(boot + kSectorSize);
  if (!std::has_single_bit(sector) || sector < kSmallestSector || sector > kLargestSector) return false;
  // Large clusters are told as a power of two of sectors.
  const std::uint8_t sectors = boot[kClusterSectors];
  const std::uint64_t cluster = sectors > 0x80 ? SizeOf(sectors, 0) * sector : std::uint64_t{sectors} * sector;
  if (!std::has_single_bit(cluster) || cluster > kLargestCluster) return false;
  const std::uint64_t record = SizeOf(boot[kRecordClusters], static_cast<std::uint32_t>(cluster));
  if (!std::has_single_bit(record) || record < kSmallestRecord || record > kLargestRecord) return false;
  std::uint64_t table;
  if (__builtin_mul_overflow(ReadLe64(boot + kTableCluster), cluster, &table) || table > INT64_MAX / 2) return false;
  // The table's first records always stand together.
  *place = {table + kVolumeRecord * record, static_cast<std::size_t>(record)};
  return true;
}

// Puts back the bytes that stand in the fixups while the record is on the disk.
bool UndoFixups(std::vector<std::uint8_t> *record) {
  const std::size_t offset = ReadLe16(&(*record)[kFixupOffset]), count = ReadLe16(&(*record)[kFixupCount]);
  if (count != record->size() / kStride + 1 || offset + 2 * count > record->size()) return false;
  const std::uint8_t *fixups = &(*record)[offset];
  for (std::size_t each = 1; each < count; ++each) {
    std::uint8_t *end = &(*record)[each * kStride - 2];
    if (std::memcmp(end, fixups, 2) != 0) return false;
    std::memcpy(end, fixups + 2 * each, 2);
  }
  return true;
}

// Null when there is no such attribute, or it is not whole.
const std::uint8_t *FindVolumeFlags(const std::vector<std::uint8_t> &record) {
  const std::size_t used = std::min<std::size_t>(ReadLe32(&record[kUsedSize]), record.size());
  for (std::size_t at = ReadLe16(&record[kFirstAttribute]); at + kAttributeHeader <= used;) {
    const std::uint8_t *attribute = &record[at];
    const std::size_t length = ReadLe32(attribute + kLength);
    if (ReadLe32(attribute) == kEndOfAttributes || length < kAttributeHeader || length > used - at) break;
    if (ReadLe32(attribute) == kVolumeInformation && attribute[kNonResident] == 0) {
      const std::size_t value = ReadLe16(attribute + kValueOffset);
      const bool whole = ReadLe32(attribute + kValueSize) >= kVolumeFlags + 2 && value + kVolumeFlags + 2 <= length;
      return whole ? attribute + value + kVolumeFlags : nullptr;
    }
    at += length;
  }
  return nullptr;
}

Status ReadDirty(int device, const std::uint8_t *boot, bool *dirty) {
  RecordPlace place;
  if (!FindVolumeRecord(boot, &place)) return Contradicts();
  std::vector<std::uint8_t> record(place.size);
  if (Status read = machine::ReadAt(device, place.offset, record.data(), record.size()); !read) return read;
  const bool whole = std::memcmp(record.data(), "FILE", 4) == 0 && UndoFixups(&record);
  const std::uint8_t *flags = whole ? FindVolumeFlags(record) : nullptr;
  if (flags == nullptr) return Contradicts();
  *dirty = (ReadLe16(flags) & kDirty) != 0;
  return {};
}

}  // namespace

Status ReadVolumeHead(const std::filesystem::path &device, VolumeHead *head) {
  *head = {};
  const machine::Descriptor file(open(device.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!file || fstat(file.fd, &status) != 0) return Status::System("cannot be read");
  std::error_code unknown;
  if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)) {
    return Status::Refused(machine::FileKind(std::filesystem::status(device, unknown).type()));
  }
  if (S_ISREG(status.st_mode) && status.st_size < static_cast<off_t>(kBootSize)) return {};
  std::array<std::uint8_t, kBootSize> boot;
  if (Status read = machine::ReadAt(file.fd, 0, boot.data(), boot.size()); !read) return read;
  head->bootable = boot[kBootMark] == 0x55 && boot[kBootMark + 1] == 0xAA;
  if (std::memcmp(&boot[kName], "-FVE-FS-", kNameSize) == 0) head->kind = VolumeKind::kEncrypted;
  if (std::memcmp(&boot[kName], "NTFS    ", kNameSize) != 0) return {};
  head->kind = VolumeKind::kNtfs;
  return ReadDirty(file.fd, boot.data(), &head->dirty);
}

}  // namespace rescue
