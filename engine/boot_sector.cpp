#include "engine/boot_sector.h"

namespace {

ChsAddress Address(uint8_t head, uint8_t sector, uint8_t cylinder) {
  return {(uint32_t{sector} & 0xC0) << 2 | cylinder, head, uint32_t{sector} & 0x3F};
}

}  // namespace

bool IsBootSignature(const uint8_t signature[2]) { return signature[0] == 0x55 && signature[1] == 0xAA; }

int FindActiveEntry(const MasterBootRecord &mbr) {
  for (int i = 0; i < kPartitionEntries; ++i) {
    if (mbr.Entries[i].Status == kActivePartition) return i;
  }
  return -1;
}

bool IsWindowsPartition(uint8_t type) {
  return type == kNtfsPartition || type == 0x0B || type == 0x0C || type == 0x0E || type == 0x0F;
}

ChsAddress StartAddress(const PartitionEntry &entry) {
  return Address(entry.StartHead, entry.StartSector, entry.StartCylinder);
}

ChsAddress EndAddress(const PartitionEntry &entry) {
  return Address(entry.EndHead, entry.EndSector, entry.EndCylinder);
}

uint64_t BootSectorOffset(const PartitionEntry &entry, uint32_t bytesPerSector) {
  return uint64_t{VxrGet32(entry.RelSect)} * bytesPerSector;
}

unsigned SetBpb(const DiskLayout &disk, const PartitionEntry &entry, BootSector *sector) {
  const uint32_t relSect = VxrGet32(entry.RelSect), sectors = VxrGet32(entry.Sectors);
  unsigned set = 0;
  // The whole number of sectors is compared, but of the heads only what the field can hold: a disk of 65,536 sectors a
  // track or more never agrees.
  if (disk.sectorsPerTrack != VxrGet16(sector->SecsPerTrack)) {
    sector->SecsPerTrack = VxrPut16(static_cast<uint16_t>(disk.sectorsPerTrack));
    set |= kBpbSecsPerTrack;
  }
  if ((disk.tracksPerCylinder & 0xFFFF) != VxrGet16(sector->TracksPerCyl)) {
    sector->TracksPerCyl = VxrPut16(static_cast<uint16_t>(disk.tracksPerCylinder));
    set |= kBpbTracksPerCyl;
  }
  if (relSect != VxrGet32(sector->HiddenSect)) {
    sector->HiddenSect = VxrPut32(relSect);
    set |= kBpbHiddenSect;
  }
  if (entry.Type == kNtfsPartition && sectors != VxrGet32(sector->TotalSect) + 1) {
    sector->TotalSect = VxrPut32(sectors - 1);
    set |= kBpbTotalSect;
  }
  return set;
}
