// The boot-sector repair: makes the boot sector of a disk's active partition agree with the disk it now lies on.
// Unlike every other operation it writes no entry and exit lines.

#include "engine/base/files.h"
#include "engine/boot_sector.h"
#include "log/heap.h"
#include "log/log.h"
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

BOOL ReadGeometry(HANDLE disk, DISK_GEOMETRY *geometry, const char *caller) {
  DWORD returned = 0;
  if (!platform::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, geometry, sizeof *geometry, &returned,
                                 nullptr)) {
    LogFailure("DeviceIoControl", "IOCTL_DISK_GET_DRIVE_GEOMETRY", caller);
    return FALSE;
  }
  VXRDbg_Log(kCheck,
             "CHECK:%s:IOCTL_DISK_GET_DRIVE_GEOMETRY:\n\tCylinder =%I64u (0x%I64X)\n\tTracks   =%u (0x%08X)\n"
             "\tSectors  =%u (0x%08X)\n\tBytes    =%u (0x%08X)\n",
             caller, geometry->Cylinders.QuadPart, geometry->Cylinders.QuadPart, geometry->TracksPerCylinder,
             geometry->TracksPerCylinder, geometry->SectorsPerTrack, geometry->SectorsPerTrack,
             geometry->BytesPerSector, geometry->BytesPerSector);
  // Both sectors are read as records of the smallest sector's size. Far larger than any disk's is a damaged answer.
  if (geometry->BytesPerSector >= kSmallestSector && geometry->BytesPerSector <= kLargestSector) return TRUE;
  VXRDbg_Log(kError, "ERROR:%s:DiskGeo.BytesPerSector =%u is not from %u to %u\n", caller, geometry->BytesPerSector,
             kSmallestSector, kLargestSector);
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

BOOL MoveToBootSector(HANDLE disk, uint64_t offset, const char *caller) {
  LONG high = static_cast<LONG>(offset >> 32);
  const DWORD low = platform::SetFilePointer(disk, static_cast<LONG>(offset), &high, FILE_BEGIN);
  if (low != INVALID_SET_FILE_POINTER || platform::GetLastError() == NO_ERROR) return TRUE;
  LogFailure("SetFilePointer", "Faile to move to boot sector", caller);
  return FALSE;
}

void LogActiveEntry(int index, const PartitionEntry &entry, const char *caller) {
  const ChsAddress start = StartAddress(entry), end = EndAddress(entry);
  const DWORD sectors = VxrGet32(entry.Sectors);
  VXRDbg_Log(kCheck,
             "CHECK:%s:Active partitin found:Index=%d:Type=%02x:SecTotal=%u:SecRelative=%u\n"
             "\tCHS_s: cyl=%04u head=%03u sect=%02u\n\tCHS_e: cyl=%04u head=%03u sect=%02u\n"
             "\tTotalSectors =0x%08x %u\n",
             caller, index, entry.Type, sectors, VxrGet32(entry.RelSect), start.cylinder, start.head, start.sector,
             end.cylinder, end.head, end.sector, sectors, sectors);
}

// Neither stops anything: a partition of today begins at a round number of sectors, and ends where it likes.
void WarnOfOtherGeometry(const Volume &volume, const char *caller) {
  const DWORD relSect = VxrGet32(volume.entry.RelSect), heads = volume.entry.EndHead + 1U;
  if (volume.geometry.SectorsPerTrack != relSect) {
    VXRDbg_Log(kMismatch, "WARNG:%s:DiskGeo.SectorsPerTrack =%u !=  pPart->rel_sect =%u\n", caller,
               volume.geometry.SectorsPerTrack, relSect);
  }
  if (volume.geometry.TracksPerCylinder != heads) {
    VXRDbg_Log(kMismatch, "WARNG:%s:DiskGeo.TracksPerCylinder =%u !=  pPart->end.h + 1=%u\n", caller,
               volume.geometry.TracksPerCylinder, heads);
  }
}

// Finds the entry of the active partition in the disk's MBR, in whose first sector the disk stands.
BOOL FindActivePartition(HANDLE disk, const char *name, Volume *volume, const char *caller) {
  const DWORD size = volume->geometry.BytesPerSector;
  const SectorBuffer buffer(AllocHeap(size, "pMBR", caller));
  if (buffer == nullptr) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:Reading MBR disk %s...\n", caller, name);
  if (!ReadSector(disk, buffer.get(), size)) {
    LogFailure("ReadFile", "MBR read failure", caller);
    return FALSE;
  }
  const auto &mbr = *static_cast<const MasterBootRecord *>(buffer.get());
  if (!IsBootSignature(mbr.Signature)) {
    LogFailure("IS_MAGICOK", "MBR magic not found!!!\n", caller);
    return FALSE;
  }
  const int index = FindActiveEntry(mbr);
  if (index < 0) {
    LogFailure("IS_ACTIVE", "Active partitin not found", caller);
    return FALSE;
  }
  volume->entry = mbr.Entries[index];
  LogActiveEntry(index, volume->entry, caller);
  if (!IsWindowsPartition(volume->entry.Type)) {
    LogFailure("IS_WINPART", "Not a Windows Partition!\n", caller);
    return FALSE;
  }
  WarnOfOtherGeometry(*volume, caller);
  // Such a partition would have the MBR for its boot sector, and the MBR is never written.
  if (VxrGet32(volume->entry.RelSect) == 0) {
    VXRDbg_Log(kError, "ERROR:%s:pPart->rel_sect =0, the partition begins at the MBR\n", caller);
    return FALSE;
  }
  return TRUE;
}

// Reads the partition's boot sector, which begins `offset` bytes into the disk. `boot` has room for a whole sector.
BOOL ReadBootSector(HANDLE disk, const char *name, const Volume &volume, uint64_t offset, BootSector *boot,
                    const char *caller) {
  if (!MoveToBootSector(disk, offset, caller)) return FALSE;
  // The line shows the low half of an offset beyond 4 GiB.
  VXRDbg_Log(kCheck, "CHECK:%s:read boot sector at %u:%u bytes\n", caller, VxrGet32(volume.entry.RelSect),
             static_cast<DWORD>(offset));
  if (!ReadSector(disk, boot, volume.geometry.BytesPerSector)) {
    LogFailure("ReadFile", name, caller);
    return FALSE;
  }
  if (!IsBootSignature(boot->Signature)) {
    LogFailure("IS_MAGICOK", "Boot sector magic not found!!!\n", caller);
    return FALSE;
  }
  VXRDbg_Log(kCheck,
             "CHECK:%s:Boot Volume BPB:\n\tSectorsPerTrack  =%u\n\tTracksPerCylinder=%u\n\tHiddenSectors    =%u\n"
             "\tTotalSectors     =%u\n",
             caller, VxrGet16(boot->SecsPerTrack), VxrGet16(boot->TracksPerCyl), VxrGet32(boot->HiddenSect),
             VxrGet32(boot->TotalSect));
  return TRUE;
}

// Sets what differs and says so. Whether anything did.
bool SetMismatchedFields(const Volume &volume, BootSector *boot, const char *caller) {
  const BootSector before = *boot;
  const DISK_GEOMETRY &geometry = volume.geometry;
  const unsigned set = SetBpb({geometry.SectorsPerTrack, geometry.TracksPerCylinder}, volume.entry, boot);
  const struct {
    BpbField field;
    const char *line;
    DWORD wanted, found;
  } kWarnings[] = {
      {kBpbSecsPerTrack, "WARNG:%s:DiskGeo.SectorsPerTrack = %u != BPB.SecsPerTrack=%u, setting BPB...\n",
       geometry.SectorsPerTrack, VxrGet16(before.SecsPerTrack)},
      {kBpbTracksPerCyl, "WARNG:%s:DiskGeo.TracksPerCylinder = %u != BPB.TracksPerCyl=%u, setting BPB...\n",
       geometry.TracksPerCylinder, VxrGet16(before.TracksPerCyl)},
      {kBpbHiddenSect, "WARNG:%s:pPart->rel_sect = %u != BPB.HiddenSect=%u, setting BPB...\n",
       VxrGet32(volume.entry.RelSect), VxrGet32(before.HiddenSect)},
      {kBpbTotalSect, "WARNG:%s:pPart->sec_total = %u != BPB.TotalSect=%u, setting BPB...\n",
       VxrGet32(volume.entry.Sectors), VxrGet32(before.TotalSect)},
  };
  for (const auto &warning : kWarnings) {
    if ((set & warning.field) != 0) VXRDbg_Log(kMismatch, warning.line, caller, warning.wanted, warning.found);
  }
  return set != 0;
}

BOOL RepairBootSector(HANDLE disk, const char *name, const Volume &volume, const char *caller) {
  const DWORD size = volume.geometry.BytesPerSector;
  const SectorBuffer buffer(AllocHeap(size, "pBoot", caller));
  if (buffer == nullptr) return FALSE;
  auto *boot = static_cast<BootSector *>(buffer.get());
  const uint64_t offset = BootSectorOffset(volume.entry, size);
  if (!ReadBootSector(disk, name, volume, offset, boot, caller)) return FALSE;
  if (!SetMismatchedFields(volume, boot, caller)) {
    VXRDbg_Log(kCheck, "CHECK:%s:no need to patch, leaving...\n", caller);
    return TRUE;
  }
  if (!MoveToBootSector(disk, offset, caller)) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:patching the mismatched BPB in volume boot sector...\n", caller);
  if (WriteSector(disk, boot, size)) return TRUE;
  LogFailure("WriteFile", "Writing boot sector back failed!", caller);
  return FALSE;
}

}  // namespace

int32_t VXREng_FixBootVolume(const char *disk) {
  const char *caller = __func__;
  if (!Given(disk, "szDisk")) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:opening disk %s...\n", caller, disk);
  const OpenedFile handle = OpenLogged(disk, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
  if (handle == nullptr) return FALSE;
  Volume volume{};
  return ReadGeometry(handle.get(), &volume.geometry, caller) &&
         FindActivePartition(handle.get(), disk, &volume, caller) &&
         RepairBootSector(handle.get(), disk, volume, caller);
}
