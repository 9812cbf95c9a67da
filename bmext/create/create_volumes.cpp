#include <algorithm>
#include <cstring>

#include "bmext/create/create.h"
#include "device/scan/disk_identity.h"
#include "device/scan/installed_driver.h"
#include "engine/base/files.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "log/product.h"
#include "volume/volume.h"
#include "vxrcore/events.h"

namespace {

constexpr int32_t kNoVolume = -1;
constexpr char kNoName[] = "No BM File Name";
constexpr SIZE_T kExtentsSize = sizeof(VOLUME_DISK_EXTENTS) + (VXR_MAX_VOLUME_DISKS - 1) * sizeof(DISK_EXTENT);
static_assert(kExtentsSize == 56);
static_assert(sizeof(DISK_EXTENT) == sizeof(VXR_DISKEXTENT));

// --- One volume -----------------------------------------------------------------------------------------------------

void FillBackupName(const char *root, const char *map, VXR_VOLUME *volume, const Caller &trace) {
  if (map != nullptr) {
    const char section[] = {root[0], '\0'};
    platform::GetPrivateProfileStringA(section, "DeviceName", kNoName, volume->BMName, sizeof volume->BMName, map);
    trace.Check("mapfile = %s\n", map);
  } else {
    StoreText(volume->BMName, kNoName);
    trace.Log(kQuietWarning, "WARNG", "%s:mapfile is not available to, set to default...\n", root);
  }
  trace.Check("%s --> %s\n", root, volume->BMName);
}

BOOL FillInformation(const char *root, VXR_VOLUME *volume, const Caller &trace) {
  DWORD serial = 0, maxLength = 0, flags = 0;
  if (!platform::GetVolumeInformationA(root, volume->Label, sizeof volume->Label, &serial, &maxLength, &flags,
                                       volume->FileSystem, sizeof volume->FileSystem)) {
    trace.Failed("GetVolumeInformation", root);
    return FALSE;
  }
  volume->Serial = VxrPut32(serial);
  volume->MaxLen = VxrPut32(maxLength);
  volume->Flags = VxrPut32(flags);
  return TRUE;
}

BOOL FillGuidPath(const char *root, VXR_VOLUME *volume, const Caller &trace) {
  if (!platform::GetVolumeNameForVolumeMountPointA(root, volume->Volume, sizeof volume->Volume)) {
    trace.Failed("GetVolumeNameForVolumeMountPoint", root);
    return FALSE;
  }
  RemoveTrailingBackslash(volume->Volume);
  return TRUE;
}

// Asks the open volume for one of its identities; `request` is the code's name.
template <SIZE_T kSize>
BOOL FillAnswer(HANDLE handle, DWORD code, const char *request, BYTE (&field)[kSize], VXR_LE32 *length,
                const Caller &trace) {
  DWORD returned = 0;
  if (!platform::DeviceIoControl(handle, code, nullptr, 0, field, kSize, &returned, nullptr)) {
    trace.Failed(request, "None");
    return FALSE;
  }
  *length = VxrPut32(returned);
  return TRUE;
}

BOOL FillFromOpenVolume(HANDLE handle, char letter, VXR_VOLUME *volume, const Caller &trace) {
  if (!FillAnswer(handle, IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, "IOCTL_MOUNTDEV_QUERY_UNIQUE_ID", volume->UniqId,
                  &volume->UniqIdLen, trace) ||
      !FillAnswer(handle, IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, "IOCTL_MOUNTDEV_QUERY_DEVICE_NAME", volume->Device,
                  &volume->DeviceLen, trace)) {
    return FALSE;
  }
  volume->VolType = VxrPut32(VXRVol_CheckVolumeType(letter));
  if (VXRExt_BuildVXRVolDisksHBM(handle, &volume->VolDisks)) return TRUE;
  trace.Failed("VXRExt_BuildVXRVolDisksHBM", "None");
  return FALSE;
}

// --- One disk -------------------------------------------------------------------------------------------------------

// Records one device's driver and returns the id of the device above it; null after logging.
HeapText RecordDriver(DWORD deviceType, const char *instanceId, VXR_DEVDRV *record, const Caller &trace) {
  HeapText parent = VXRDev_GetVXRDevDriver(deviceType, instanceId, record);
  if (parent != nullptr) return parent;
  trace.Failed("VXRDev_GetVXRDevDriver", instanceId);
  platform::ReportDecision(VXRMACHINE_DEVICE_WITHOUT_DRIVER, instanceId);
  return nullptr;
}

// --- All volumes ----------------------------------------------------------------------------------------------------

// The roots of all drives as a multi-string; null after logging.
HeapText ReadDriveRoots(const Caller &trace) {
  const DWORD size = platform::GetLogicalDriveStringsA(0, nullptr);
  if (size == 0) {
    trace.Failed("GetLogicalDriveStrings", "faield to get size!");
    return nullptr;
  }
  HeapText roots = AllocText(size, "szDrives", trace);
  if (roots == nullptr) return nullptr;
  // A list that grew since then no longer fits, and is not there.
  const DWORD length = platform::GetLogicalDriveStringsA(size, roots.get());
  if (length == 0 || length >= size || roots.get()[0] == '\0') {
    trace.Failed("GetLogicalDriveStrings", "No drives found!");
    return nullptr;
  }
  return roots;
}

// Records the volume of a fixed drive in the next slot. A failing one leaves the slot empty.
void AddVolume(const char *root, const char *map, VXR_VOLUMES *volumes, const Caller &trace) {
  const DWORD index = VxrGet32(volumes->VolCount);
  VXR_VOLUME *volume = &volumes->Vols[index];
  trace.Check("checking mnpnt = %s...\n", root);
  platform::ReportDecision(VXRMACHINE_VOLUME_CHECKED, root);
  if (!VXRExt_BuildVXRVolumeHBM(root, map, volume)) {
    trace.Failed("VXRExt_BuildVXRVolumeHBM", "None");
    platform::ReportDecision(VXRMACHINE_VOLUME_LEFT_OUT, root);
    *volume = {};
    return;
  }
  const DWORD kind = VxrGet32(volume->VolType);
  if (kind & kHoldsBootIni) volumes->BootVolInd = VxrPut32(index);
  if (kind & kHoldsSystem) volumes->SystVolInd = VxrPut32(index);
  volumes->VolCount = VxrPut32(index + 1);
  trace.Check("added %d vxr volume...\n", index + 1);
}

BOOL VXRExt_BuildVXRVolumesHBM(const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRVolumes, "pVXRVolumes")) return FALSE;
  const HeapText roots = ReadDriveRoots(trace);
  if (roots == nullptr) return FALSE;
  pVXRVolumes->VolCount = VxrPut32(0);
  pVXRVolumes->MaxVolCount = VxrPut32(VXR_MAX_VOLUMES);
  pVXRVolumes->BootVolInd = pVXRVolumes->SystVolInd = VxrPut32(static_cast<uint32_t>(kNoVolume));
  for (int32_t n = 1; const char *root = VXREng_GetSubString(n, roots.get()); ++n) {
    if (platform::GetDriveTypeA(root) != DRIVE_FIXED) {
      trace.Flush("drv=%s:not a disk\n", root);
      continue;
    }
    AddVolume(root, szMap, pVXRVolumes, trace);
    if (VxrGet32(pVXRVolumes->VolCount) == VXR_MAX_VOLUMES) {
      trace.Error("max %d vxr vols reached!\n", VXR_MAX_VOLUMES);
      platform::ReportDecision(VXRMACHINE_VOLUMES_FULL, nullptr);
      break;
    }
  }
  return TRUE;
}

BOOL VXRExt_BuildVXRVolumesCBM(const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  trace.Check("CBM:TO-BE-IMPLEMENTED:fake it with HBM...\n");
  return VXRExt_BuildVXRVolumesHBM(szMap, pVXRVolumes);
}

}  // namespace

BOOL VXRExt_BuildVXRVolumes(DWORD cold, const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRVolumes, "pVXRVolumes")) return FALSE;
  if (cold != 0) {
    trace.Check("Cold Bare Metal:call VXRExt_BuildVXRVolumesCBM\n");
    return VXRExt_BuildVXRVolumesCBM(szMap, pVXRVolumes);
  }
  trace.Check("Hot Bare Metal:call VXRExt_BuildVXRVolumesHBM\n");
  return VXRExt_BuildVXRVolumesHBM(szMap, pVXRVolumes);
}

BOOL VXRExt_BuildVXRVolumeHBM(const char *szMntPnt, const char *szMap, VXR_VOLUME *pVXRVolume) {
  const CallTrace trace = TraceCall();
  if (!Given(szMntPnt, "szMntPnt") || !Given(pVXRVolume, "pVXRVolume")) return FALSE;
  trace.Check("mntpnt = %s\n", szMntPnt);
  StoreText(pVXRVolume->MntPnt, szMntPnt);
  FillBackupName(szMntPnt, szMap, pVXRVolume, trace);
  if (!FillInformation(szMntPnt, pVXRVolume, trace) || !FillGuidPath(szMntPnt, pVXRVolume, trace)) return FALSE;
  // No access rights: the questions need none, and a volume in use can still be asked.
  const OpenedFile volume = OpenLogged(pVXRVolume->Volume, 0, FILE_SHARE_READ, OPEN_EXISTING);
  return volume != nullptr && FillFromOpenVolume(volume.get(), szMntPnt[0], pVXRVolume, trace);
}

BOOL VXRExt_BuildVXRVolDisksHBM(HANDLE hVolume, VXR_VOLDISKS *pVXRVolDisks) {
  const CallTrace trace = TraceCall();
  if (hVolume == INVALID_HANDLE_VALUE) {
    trace.Error("hVolume is INVALID_HANDLE_VALUE\n");
    return FALSE;
  }
  if (!Given(pVXRVolDisks, "pVXRVolDisks")) return FALSE;
  pVXRVolDisks->MaxDiskCount = VxrPut32(VXR_MAX_VOLUME_DISKS);
  const HeapPtr<VOLUME_DISK_EXTENTS> answer(static_cast<VOLUME_DISK_EXTENTS *>(AllocHeap(kExtentsSize, "pVolExts")));
  if (answer == nullptr) return FALSE;
  DWORD returned = 0;
  if (!platform::DeviceIoControl(hVolume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, answer.get(), kExtentsSize,
                                 &returned, nullptr)) {
    const DWORD error = platform::GetLastError();
    trace.Failed("IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", "None");
    if (error == ERROR_INSUFFICIENT_BUFFER) {
      trace.Error("input buffer is too small!\tneed %d extents!\n", answer->NumberOfDiskExtents);
    }
    return FALSE;
  }
  const DWORD count = std::min<DWORD>(answer->NumberOfDiskExtents, VXR_MAX_VOLUME_DISKS);
  const DISK_EXTENT *extents = answer->Extents;
  for (DWORD i = 0; i < count; ++i) VXRExt_BuildVXRVolDisk(extents + i, &pVXRVolDisks->Disks[i]);
  pVXRVolDisks->DiskCount = VxrPut32(count);
  return TRUE;
}

BOOL VXRExt_BuildVXRVolDisk(const DISK_EXTENT *pDiskExtent, VXR_VOLDISK *pVXRVolDisk) {
  const CallTrace trace = TraceCall();
  if (!Given(pDiskExtent, "pDiskExtent") || !Given(pVXRVolDisk, "pVXRVolDisk")) return FALSE;
  std::memcpy(&pVXRVolDisk->DiskExtent, pDiskExtent, sizeof *pDiskExtent);  // with the bytes between its numbers
  const HeapText disk = VXRDev_GetDiskInstanceID(nullptr, pDiskExtent->DiskNumber);
  if (disk == nullptr) {
    trace.Error("VXRDev_GetDiskDevicePath:failed for disk %d!\n", pDiskExtent->DiskNumber);
    platform::ReportDecision(VXRMACHINE_DISK_NOT_PRESENT, nullptr, nullptr, pDiskExtent->DiskNumber);
    return FALSE;
  }
  trace.Log(kStatus, "CHECK", "check %s...\n", disk.get());  // at every level: what follows is about it
  const HeapText controller = RecordDriver(VXR_DEVTYPE_DISKDRIVE, disk.get(), &pVXRVolDisk->DiskDriver, trace);
  if (controller == nullptr) return FALSE;
  const bool ide = BeginsWith(disk.get(), "IDE");
  const HeapText extender =
      RecordDriver(ide ? VXR_DEVTYPE_HDC : VXR_DEVTYPE_SCSIADAPTER, controller.get(), &pVXRVolDisk->CtrlDriver, trace);
  if (extender == nullptr) return FALSE;
  return !ide || RecordDriver(VXR_DEVTYPE_HDC, extender.get(), &pVXRVolDisk->BusEDriver, trace) != nullptr;
}
