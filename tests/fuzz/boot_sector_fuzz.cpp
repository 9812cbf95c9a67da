// The boot-sector repair's reading and patching, on sectors from outside: an MBR, a boot sector, the geometry's two
// numbers. Whatever they hold, only the four fields may change, and a second look must find nothing more to set.
#include <cstring>
#include <memory>

#include "engine/boot_sector.h"

namespace {

void Require(bool holds) {
  if (!holds) __builtin_trap();
}

// A record of its own on the heap, so that the sanitizer sees each byte read or written beside it. What the input lacks
// is zero.
template <typename Record>
std::unique_ptr<Record> Take(const uint8_t **data, size_t *size) {
  auto record = std::make_unique<Record>();
  const size_t length = *size < sizeof(Record) ? *size : sizeof(Record);
  if (length > 0) std::memcpy(record.get(), *data, length);
  *data += length;
  *size -= length;
  return record;
}

void CheckAddress(const ChsAddress &address) {
  Require(address.cylinder <= 1023 && address.head <= 255 && address.sector <= 63);
}

bool MayChange(size_t at, uint8_t type) { return (at >= 24 && at < 32) || (at >= 40 && at < 44 && type == 0x07); }

void CheckRepair(const DiskLayout &disk, const PartitionEntry &entry, BootSector *sector) {
  uint8_t before[sizeof(BootSector)], after[sizeof(BootSector)];
  std::memcpy(before, sector, sizeof before);
  const unsigned set = SetBpb(disk, entry, sector);
  std::memcpy(after, sector, sizeof after);
  for (size_t at = 0; at < sizeof before; ++at) {
    Require(before[at] == after[at] || (set != 0 && MayChange(at, entry.Type)));
  }
  // A number of sectors a track that the field cannot hold never agrees.
  const unsigned never = disk.sectorsPerTrack > 0xFFFF ? unsigned{kBpbSecsPerTrack} : 0;
  Require(SetBpb(disk, entry, sector) == never);
  Require(std::memcmp(sector, after, sizeof after) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const auto mbr = Take<MasterBootRecord>(&data, &size);
  const auto sector = Take<BootSector>(&data, &size);
  const auto geometry = Take<VXR_LE64>(&data, &size);
  const DiskLayout disk = {static_cast<uint32_t>(VxrGet64(*geometry)),
                           static_cast<uint32_t>(VxrGet64(*geometry) >> 32)};
  const int index = FindActiveEntry(*mbr);
  Require(index >= -1 && index < kPartitionEntries);
  for (int i = 0; i < (index < 0 ? kPartitionEntries : index); ++i) Require(mbr->Entries[i].Status != kActivePartition);
  if (index < 0) return 0;
  const PartitionEntry &entry = mbr->Entries[index];
  CheckAddress(StartAddress(entry));
  CheckAddress(EndAddress(entry));
  Require(BootSectorOffset(entry, kLargestSector) / kLargestSector == VxrGet32(entry.RelSect));
  CheckRepair(disk, entry, sector.get());
  return 0;
}
