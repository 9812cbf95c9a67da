// The boot-sector repair: makes the boot sector of a disk's active partition agree with the disk it now lies on.
// Unlike every other operation it writes no entry and exit lines.

#include "engine/base/files.h"
#include "engine/boot_sector.h"
#include "log/heap.h"
#include "log/log.h"
#include "vxrcore/events.h"
#include "vxrcore/vxrcore.h"

namespace {

using SectorBuffer = HeapPtr<void>;

// The repair's warnings are shown at every level of the log: they tell what is changed on a disk, and why.
constexpr int32_t kMismatch = 0;

// Where the active partition is, and on what disk.
struct Volume {
  DISK_GEOMETRY geometry;
  PartitionEntry entry;
};

void ReportFact(DWORD fact, DWORD64 value) {
  platform::ReportDecision(VXRMACHINE_BOOT_FACT, nullptr, nullptr, fact, value);
}

void ReportRefusedDisk(DWORD fact) { platform::ReportDecision(VXRMACHINE_BOOT_REFUSED, nullptr, nullptr, fact); }

BOOL ReadGeometry(HANDLE disk, DISK_GEOMETRY *geometry, const Caller &trace) {
  DWORD returned = 0;
  if (!platform::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, geometry, sizeof *geometry, &returned,
                                 nullptr)) {
    trace.Failed("DeviceIoControl", "IOCTL_DISK_GET_DRIVE_GEOMETRY");
    return FALSE;
  }
  trace.Check(
      "IOCTL_DISK_GET_DRIVE_GEOMETRY:\n\tCylinder =%I64u (0x%I64X)\n\tTracks   =%u (0x%08X)\n"
      "\tSectors  =%u (0x%08X)\n\tBytes    =%u (0x%08X)\n",
      geometry->Cylinders.QuadPart, geometry->Cylinders.QuadPart, geometry->TracksPerCylinder,
      geometry->TracksPerCylinder, geometry->SectorsPerTrack, geometry->SectorsPerTrack, geometry->BytesPerSector,
      geometry->BytesPerSector);
  ReportFact(VXRMACHINE_BOOT_CYLINDERS, static_cast<DWORD64>(geometry->Cylinders.QuadPart));
  ReportFact(VXRMACHINE_BOOT_HEADS, geometry->TracksPerCylinder);
  ReportFact(VXRMACHINE_BOOT_SECTORS, geometry->SectorsPerTrack);
  ReportFact(VXRMACHINE_BOOT_BYTES, geometry->BytesPerSector);
  // Both sectors are read as records of the smallest sector's size. Far larger than any disk's is a damaged answer.
  if (geometry->BytesPerSector >= kSmallestSector && geometry->BytesPerSector <= kLargestSector) return TRUE;
  trace.Error("DiskGeo.BytesPerSector =%u is not from %u to %u\n", geometry->BytesPerSector, kSmallestSector,
              kLargestSector);
  ReportRefusedDisk(VXRMACHINE_BOOT_BYTES);
  return FALSE;
}

// Part of a sector is as good as none.
BOOL ReadSector(HANDLE disk, void *sector, DWORD size) {
  DWORD read = 0;
  if (!platform::ReadFile(disk, sector, size, &read, nullptr)) return FALSE;
  if (read == size) return TRUE;
  platform::SetLastError(ERROR_SECTOR_NOT_FOUND);
  return FALSE;
}

BOOL WriteSector(HANDLE disk, const void *sector, DWORD size) {
  DWORD written = 0;
  if (!platform::WriteFile(disk, sector, size, &written, nullptr)) return FALSE;
  if (written == size) return TRUE;
  platform::SetLastError(ERROR_IO_DEVICE);
  return FALSE;
}

BOOL MoveToBootSector(HANDLE disk, uint64_t offset, const Caller &trace) {
  LONG high = static_cast<LONG>(offset >> 32);
  const DWORD low = platform::SetFilePointer(disk, static_cast<LONG>(offset), &high, FILE_BEGIN);
  if (low != INVALID_SET_FILE_POINTER || platform::GetLastError() == NO_ERROR) return TRUE;
  trace.Failed("SetFilePointer", "Faile to move to boot sector");
  return FALSE;
}

void TellActiveEntry(int index, const PartitionEntry &entry, const Caller &trace) {
  const ChsAddress start = StartAddress(entry), end = EndAddress(entry);
  const DWORD sectors = VxrGet32(entry.Sectors);
  trace.Check(
      "Active partitin found:Index=%d:Type=%02x:SecTotal=%u:SecRelative=%u\n"
      "\tCHS_s: cyl=%04u head=%03u sect=%02u\n\tCHS_e: cyl=%04u head=%03u sect=%02u\n"
      "\tTotalSectors =0x%08x %u\n",
      index, entry.Type, sectors, VxrGet32(entry.RelSect), start.cylinder, start.head, start.sector, end.cylinder,
      end.head, end.sector, sectors, sectors);
  ReportFact(VXRMACHINE_BOOT_ENTRY, static_cast<DWORD64>(index));
  ReportFact(VXRMACHINE_BOOT_TYPE, entry.Type);
  ReportFact(VXRMACHINE_BOOT_LENGTH, sectors);
  ReportFact(VXRMACHINE_BOOT_FIRST, VxrGet32(entry.RelSect));
}

// Neither stops anything: a partition of today begins at a round number of sectors, and ends where it likes.
void WarnOfOtherGeometry(const Volume &volume, const Caller &trace) {
  const DWORD relSect = VxrGet32(volume.entry.RelSect), heads = volume.entry.EndHead + 1U;
  if (volume.geometry.SectorsPerTrack != relSect) {
    trace.Log(kMismatch, "WARNG", "DiskGeo.SectorsPerTrack =%u !=  pPart->rel_sect =%u\n",
              volume.geometry.SectorsPerTrack, relSect);
  }
  if (volume.geometry.TracksPerCylinder != heads) {
    trace.Log(kMismatch, "WARNG", "DiskGeo.TracksPerCylinder =%u !=  pPart->end.h + 1=%u\n",
              volume.geometry.TracksPerCylinder, heads);
  }
}

// Finds the entry of the active partition in the disk's MBR, in whose first sector the disk stands.
BOOL FindActivePartition(HANDLE disk, const char *name, Volume *volume, const Caller &trace) {
  const DWORD size = volume->geometry.BytesPerSector;
  const SectorBuffer buffer(AllocHeap(size, "pMBR", trace));
  if (buffer == nullptr) return FALSE;
  trace.Check("Reading MBR disk %s...\n", name);
  if (!ReadSector(disk, buffer.get(), size)) {
    trace.Failed("ReadFile", "MBR read failure");
    return FALSE;
  }
  const auto &mbr = *static_cast<const MasterBootRecord *>(buffer.get());
  if (!IsBootSignature(mbr.Signature)) {
    trace.Failed("IS_MAGICOK", "MBR magic not found!!!\n");
    return FALSE;
  }
  const int index = FindActiveEntry(mbr);
  if (index < 0) {
    trace.Failed("IS_ACTIVE", "Active partitin not found");
    return FALSE;
  }
  volume->entry = mbr.Entries[index];
  TellActiveEntry(index, volume->entry, trace);
  if (!IsWindowsPartition(volume->entry.Type)) {
    trace.Failed("IS_WINPART", "Not a Windows Partition!\n");
    return FALSE;
  }
  WarnOfOtherGeometry(*volume, trace);
  // Such a partition would have the MBR for its boot sector, and the MBR is never written.
  if (VxrGet32(volume->entry.RelSect) == 0) {
    trace.Error("pPart->rel_sect =0, the partition begins at the MBR\n");
    ReportRefusedDisk(VXRMACHINE_BOOT_FIRST);
    return FALSE;
  }
  return TRUE;
}

// Reads the partition's boot sector, which begins `offset` bytes into the disk. `boot` has room for a whole sector.
BOOL ReadBootSector(HANDLE disk, const char *name, const Volume &volume, uint64_t offset, BootSector *boot,
                    const Caller &trace) {
  if (!MoveToBootSector(disk, offset, trace)) return FALSE;
  // The line shows the low half of an offset beyond 4 GiB.
  trace.Check("read boot sector at %u:%u bytes\n", VxrGet32(volume.entry.RelSect), static_cast<DWORD>(offset));
  if (!ReadSector(disk, boot, volume.geometry.BytesPerSector)) {
    trace.Failed("ReadFile", name);
    return FALSE;
  }
  if (!IsBootSignature(boot->Signature)) {
    trace.Failed("IS_MAGICOK", "Boot sector magic not found!!!\n");
    return FALSE;
  }
  trace.Check(
      "Boot Volume BPB:\n\tSectorsPerTrack  =%u\n\tTracksPerCylinder=%u\n\tHiddenSectors    =%u\n"
      "\tTotalSectors     =%u\n",
      VxrGet16(boot->SecsPerTrack), VxrGet16(boot->TracksPerCyl), VxrGet32(boot->HiddenSect),
      VxrGet32(boot->TotalSect));
  ReportFact(VXRMACHINE_BOOT_FIELD_SECTORS, VxrGet16(boot->SecsPerTrack));
  ReportFact(VXRMACHINE_BOOT_FIELD_HEADS, VxrGet16(boot->TracksPerCyl));
  ReportFact(VXRMACHINE_BOOT_FIELD_HIDDEN, VxrGet32(boot->HiddenSect));
  ReportFact(VXRMACHINE_BOOT_FIELD_TOTAL, VxrGet32(boot->TotalSect));
  return TRUE;
}

// Sets what differs and says so. Whether anything did.
bool SetMismatchedFields(const Volume &volume, BootSector *boot, const Caller &trace) {
  const BootSector before = *boot;
  const DISK_GEOMETRY &geometry = volume.geometry;
  const unsigned set = SetBpb({geometry.SectorsPerTrack, geometry.TracksPerCylinder}, volume.entry, boot);
  const struct {
    BpbField field;
    DWORD fact;
    const char *line;
    DWORD wanted, found;
  } kWarnings[] = {
      {kBpbSecsPerTrack, VXRMACHINE_BOOT_FIELD_SECTORS,
       "DiskGeo.SectorsPerTrack = %u != BPB.SecsPerTrack=%u, setting BPB...\n", geometry.SectorsPerTrack,
       VxrGet16(before.SecsPerTrack)},
      {kBpbTracksPerCyl, VXRMACHINE_BOOT_FIELD_HEADS,
       "DiskGeo.TracksPerCylinder = %u != BPB.TracksPerCyl=%u, setting BPB...\n", geometry.TracksPerCylinder,
       VxrGet16(before.TracksPerCyl)},
      {kBpbHiddenSect, VXRMACHINE_BOOT_FIELD_HIDDEN, "pPart->rel_sect = %u != BPB.HiddenSect=%u, setting BPB...\n",
       VxrGet32(volume.entry.RelSect), VxrGet32(before.HiddenSect)},
      {kBpbTotalSect, VXRMACHINE_BOOT_FIELD_TOTAL, "pPart->sec_total = %u != BPB.TotalSect=%u, setting BPB...\n",
       VxrGet32(volume.entry.Sectors), VxrGet32(before.TotalSect)},
  };
  for (const auto &warning : kWarnings) {
    if ((set & warning.field) == 0) continue;
    trace.Log(kMismatch, "WARNG", warning.line, warning.wanted, warning.found);
    platform::ReportDecision(VXRMACHINE_BOOT_FIELD_SET, nullptr, nullptr, warning.fact);
  }
  return set != 0;
}

BOOL RepairBootSector(HANDLE disk, const char *name, const Volume &volume, const Caller &trace) {
  const DWORD size = volume.geometry.BytesPerSector;
  const SectorBuffer buffer(AllocHeap(size, "pBoot", trace));
  if (buffer == nullptr) return FALSE;
  auto *boot = static_cast<BootSector *>(buffer.get());
  const uint64_t offset = BootSectorOffset(volume.entry, size);
  if (!ReadBootSector(disk, name, volume, offset, boot, trace)) return FALSE;
  if (!SetMismatchedFields(volume, boot, trace)) {
    trace.Check("no need to patch, leaving...\n");
    return TRUE;
  }
  if (!MoveToBootSector(disk, offset, trace)) return FALSE;
  trace.Check("patching the mismatched BPB in volume boot sector...\n");
  if (WriteSector(disk, boot, size)) return TRUE;
  trace.Failed("WriteFile", "Writing boot sector back failed!");
  return FALSE;
}

}  // namespace

int32_t VXREng_FixBootVolume(const char *disk) {
  const Caller trace{__func__};
  if (!Given(disk, "szDisk")) return FALSE;
  trace.Check("opening disk %s...\n", disk);
  const OpenedFile handle = OpenLogged(disk, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
  if (handle == nullptr) return FALSE;
  Volume volume{};
  return ReadGeometry(handle.get(), &volume.geometry, trace) &&
         FindActivePartition(handle.get(), disk, &volume, trace) && RepairBootSector(handle.get(), disk, volume, trace);
}
