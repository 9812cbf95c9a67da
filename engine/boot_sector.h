// The two sectors that a disk starts a system from, as they lie on the disk: what is read in them, and the four fields
// that the repair sets. Nothing here asks the platform or writes to the log.
//
// A sector may be larger than the 512 bytes that these records describe; its tail has no part in them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vxrcore/bmext.h"

inline constexpr uint32_t kSmallestSector = 512;  // bytes; a record fills one
inline constexpr uint32_t kLargestSector = 65536;
inline constexpr int kPartitionEntries = 4;
inline constexpr uint8_t kActivePartition = 0x80;
inline constexpr uint8_t kNtfsPartition = 0x07;

struct PartitionEntry {
  uint8_t Status;         // 0: kActivePartition marks the one that is started from
  uint8_t StartHead;      // 1
  uint8_t StartSector;    // 2: bits 0-5; bits 6-7 are bits 8-9 of the cylinder
  uint8_t StartCylinder;  // 3: bits 0-7
  uint8_t Type;           // 4
  uint8_t EndHead;        // 5
  uint8_t EndSector;      // 6: as StartSector
  uint8_t EndCylinder;    // 7
  VXR_LE32 RelSect;       // 8: first sector, counted from the disk's start
  VXR_LE32 Sectors;       // 12: how many
};
static_assert(sizeof(PartitionEntry) == 16);
static_assert(offsetof(PartitionEntry, Status) == 0);
static_assert(offsetof(PartitionEntry, StartHead) == 1);
static_assert(offsetof(PartitionEntry, StartSector) == 2);
static_assert(offsetof(PartitionEntry, StartCylinder) == 3);
static_assert(offsetof(PartitionEntry, Type) == 4);
static_assert(offsetof(PartitionEntry, EndHead) == 5);
static_assert(offsetof(PartitionEntry, EndSector) == 6);
static_assert(offsetof(PartitionEntry, EndCylinder) == 7);
static_assert(offsetof(PartitionEntry, RelSect) == 8);
static_assert(offsetof(PartitionEntry, Sectors) == 12);

struct MasterBootRecord {
  uint8_t Code[446];                          // 0
  PartitionEntry Entries[kPartitionEntries];  // 446
  uint8_t Signature[2];                       // 510: 55 AA
};
static_assert(sizeof(MasterBootRecord) == kSmallestSector && alignof(MasterBootRecord) == 1);
static_assert(offsetof(MasterBootRecord, Entries) == 446);
static_assert(offsetof(MasterBootRecord, Signature) == 510);

struct BootSector {
  uint8_t Jump[24];       // 0: with the fields that the repair leaves alone
  VXR_LE16 SecsPerTrack;  // 24: sectors per track
  VXR_LE16 TracksPerCyl;  // 26: heads
  VXR_LE32 HiddenSect;    // 28: sectors before the partition
  uint8_t Other[8];       // 32
  VXR_LE32 TotalSect;     // 40: NTFS: low half of the volume's sectors; other file systems keep other fields here
  uint8_t Code[466];      // 44
  uint8_t Signature[2];   // 510: 55 AA
};
static_assert(sizeof(BootSector) == kSmallestSector && alignof(BootSector) == 1);
static_assert(offsetof(BootSector, SecsPerTrack) == 24);
static_assert(offsetof(BootSector, TracksPerCyl) == 26);
static_assert(offsetof(BootSector, HiddenSect) == 28);
static_assert(offsetof(BootSector, TotalSect) == 40);
static_assert(offsetof(BootSector, Signature) == 510);

// Whether the two bytes are 55 AA.
bool IsBootSignature(const uint8_t signature[2]);

// The index of the first active entry, -1 when there is none.
int FindActiveEntry(const MasterBootRecord &mbr);

// Whether a partition of this type can hold a Windows system: 07, 0B, 0C, 0E, 0F.
bool IsWindowsPartition(uint8_t type);

// Where a partition begins or ends in the disk's nominal geometry.
struct ChsAddress {
  uint32_t cylinder, head, sector;
};
ChsAddress StartAddress(const PartitionEntry &entry);
ChsAddress EndAddress(const PartitionEntry &entry);

// The offset of the partition's boot sector in bytes from the disk's start: at most 48 bits.
uint64_t BootSectorOffset(const PartitionEntry &entry, uint32_t bytesPerSector);

// What the boot sector should agree with.
struct DiskLayout {
  uint32_t sectorsPerTrack, tracksPerCylinder;  // the disk's geometry
};

// What SetBpb has set.
enum BpbField : unsigned {
  kBpbSecsPerTrack = 0x1,
  kBpbTracksPerCyl = 0x2,
  kBpbHiddenSect = 0x4,
  kBpbTotalSect = 0x8,
};

// Sets each of the four fields that differs from the disk's layout and the partition's entry, and nothing else; the
// total of sectors only in a partition of type 07, where it is one less than the partition has. Returns the BpbField
// bits of what differed.
unsigned SetBpb(const DiskLayout &disk, const PartitionEntry &entry, BootSector *sector);
