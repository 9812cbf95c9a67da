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

namespace {

constexpr int32_t kNoVolume = -1;
constexpr char kNoName[] = "No BM File Name";
constexpr SIZE_T kExtentsSize = sizeof(VOLUME_DISK_EXTENTS) + (VXR_MAX_VOLUME_DISKS - 1) * sizeof(DISK_EXTENT);
static_assert(kExtentsSize == 56);
static_assert(sizeof(DISK_EXTENT) == sizeof(VXR_DISKEXTENT));

// --- One volume -----------------------------------------------------------------------------------------------------

void FillBackupName(const char *root, const char *map, VXR_VOLUME *volume, const char *caller) {
  if (map != nullptr) {
    const char section[] = {root[0], '\0'};
    platform::GetPrivateProfileStringA(section, "DeviceName", kNoName, volume->BMName, sizeof volume->BMName, map);
    VXRDbg_Log(kCheck, "CHECK:%s:mapfile = %s\n", caller, map);
  } else {
    StoreText(volume->BMName, kNoName);
    VXRDbg_Log(kQuietWarning, "WARNG:%s:%s:mapfile is not available to, set to default...\n", caller, root);
  }
  VXRDbg_Log(kCheck, "CHECK:%s:%s --> %s\n", caller, root, volume->BMName);
}

BOOL FillInformation(const char *root, VXR_VOLUME *volume, const char *caller) {
  DWORD serial = 0, maxLength = 0, flags = 0;
  if (!platform::GetVolumeInformationA(root, volume->Label, sizeof volume->Label, &serial, &maxLength, &flags,
                                       volume->FileSystem, sizeof volume->FileSystem)) {
    LogFailure("GetVolumeInformation", root, caller);
    return FALSE;
  }
  volume->Serial = VxrPut32(serial);
  volume->MaxLen = VxrPut32(maxLength);
  volume->Flags = VxrPut32(flags);
  return TRUE;
}

BOOL FillGuidPath(const char *root, VXR_VOLUME *volume, const char *caller) {
  if (!platform::GetVolumeNameForVolumeMountPointA(root, volume->Volume, sizeof volume->Volume)) {
    LogFailure("GetVolumeNameForVolumeMountPoint", root, caller);
    return FALSE;
  }
  RemoveTrailingBackslash(volume->Volume);
  return TRUE;
}

// Asks the open volume for one of its identities; `request` is the code's name.
template <SIZE_T kSize>
BOOL FillAnswer(HANDLE handle, DWORD code, const char *request, BYTE (&field)[kSize], VXR_LE32 *length,
                const char *caller) {
  DWORD returned = 0;
  if (!platform::DeviceIoControl(handle, code, nullptr, 0, field, kSize, &returned, nullptr)) {
    LogFailure(request, "None", caller);
    return FALSE;
  }
  *length = VxrPut32(returned);
  return TRUE;
}

BOOL FillFromOpenVolume(HANDLE handle, char letter, VXR_VOLUME *volume, const char *caller) {
  if (!FillAnswer(handle, IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, "IOCTL_MOUNTDEV_QUERY_UNIQUE_ID", volume->UniqId,
                  &volume->UniqIdLen, caller) ||
      !FillAnswer(handle, IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, "IOCTL_MOUNTDEV_QUERY_DEVICE_NAME", volume->Device,
                  &volume->DeviceLen, caller)) {
    return FALSE;
  }
  volume->VolType = VxrPut32(VXRVol_CheckVolumeType(letter));
  if (VXRExt_BuildVXRVolDisksHBM(handle, &volume->VolDisks)) return TRUE;
  LogFailure("VXRExt_BuildVXRVolDisksHBM", "None", caller);
  return FALSE;
}

// --- One disk -------------------------------------------------------------------------------------------------------

// Records one device's driver and returns the id of the device above it; null after logging.
HeapText RecordDriver(DWORD deviceType, const char *instanceId, VXR_DEVDRV *record, const char *caller) {
  HeapText parent = VXRDev_GetVXRDevDriver(deviceType, instanceId, record);
  if (parent == nullptr) LogFailure("VXRDev_GetVXRDevDriver", instanceId, caller);
  return parent;
}

// --- All volumes ----------------------------------------------------------------------------------------------------

// The roots of all drives as a multi-string; null after logging.
HeapText ReadDriveRoots(const char *caller) {
  const DWORD size = platform::GetLogicalDriveStringsA(0, nullptr);
  if (size == 0) {
    LogFailure("GetLogicalDriveStrings", "faield to get size!", caller);
    return nullptr;
  }
  HeapText roots = AllocText(size, "szDrives", caller);
  if (roots == nullptr) return nullptr;
  // A list that grew since then no longer fits, and is not there.
  const DWORD length = platform::GetLogicalDriveStringsA(size, roots.get());
  if (length == 0 || length >= size || roots.get()[0] == '\0') {
    LogFailure("GetLogicalDriveStrings", "No drives found!", caller);
    return nullptr;
  }
  return roots;
}

// Records the volume of a fixed drive in the next slot. A failing one leaves the slot empty.
void AddVolume(const char *root, const char *map, VXR_VOLUMES *volumes, const char *caller) {
  const DWORD index = VxrGet32(volumes->VolCount);
  VXR_VOLUME *volume = &volumes->Vols[index];
  VXRDbg_Log(kCheck, "CHECK:%s:checking mnpnt = %s...\n", caller, root);
  if (!VXRExt_BuildVXRVolumeHBM(root, map, volume)) {
    LogFailure("VXRExt_BuildVXRVolumeHBM", "None", caller);
    *volume = {};
    return;
  }
  const DWORD kind = VxrGet32(volume->VolType);
  if (kind & kHoldsBootIni) volumes->BootVolInd = VxrPut32(index);
  if (kind & kHoldsSystem) volumes->SystVolInd = VxrPut32(index);
  volumes->VolCount = VxrPut32(index + 1);
  VXRDbg_Log(kCheck, "CHECK:%s:added %d vxr volume...\n", caller, index + 1);
}

BOOL VXRExt_BuildVXRVolumesHBM(const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRVolumes, "pVXRVolumes")) return FALSE;
  const HeapText roots = ReadDriveRoots(__func__);
  if (roots == nullptr) return FALSE;
  pVXRVolumes->VolCount = VxrPut32(0);
  pVXRVolumes->MaxVolCount = VxrPut32(VXR_MAX_VOLUMES);
  pVXRVolumes->BootVolInd = pVXRVolumes->SystVolInd = VxrPut32(static_cast<uint32_t>(kNoVolume));
  for (int32_t n = 1; const char *root = VXREng_GetSubString(n, roots.get()); ++n) {
    if (platform::GetDriveTypeA(root) != DRIVE_FIXED) {
      VXRDbg_Log(kFlush, "FLUSH:%s:drv=%s:not a disk\n", __func__, root);
      continue;
    }
    AddVolume(root, szMap, pVXRVolumes, __func__);
    if (VxrGet32(pVXRVolumes->VolCount) == VXR_MAX_VOLUMES) {
      VXRDbg_Log(kError, "ERROR:%s:max %d vxr vols reached!\n", __func__, VXR_MAX_VOLUMES);
      break;
    }
  }
  return TRUE;
}

BOOL VXRExt_BuildVXRVolumesCBM(const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  VXRDbg_Log(kCheck, "CHECK:%s:CBM:TO-BE-IMPLEMENTED:fake it with HBM...\n", __func__);
  return VXRExt_BuildVXRVolumesHBM(szMap, pVXRVolumes);
}

}  // namespace

BOOL VXRExt_BuildVXRVolumes(DWORD cold, const char *szMap, VXR_VOLUMES *pVXRVolumes) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRVolumes, "pVXRVolumes")) return FALSE;
  if (cold != 0) {
    VXRDbg_Log(kCheck, "CHECK:%s:Cold Bare Metal:call VXRExt_BuildVXRVolumesCBM\n", __func__);
    return VXRExt_BuildVXRVolumesCBM(szMap, pVXRVolumes);
  }
  VXRDbg_Log(kCheck, "CHECK:%s:Hot Bare Metal:call VXRExt_BuildVXRVolumesHBM\n", __func__);
  return VXRExt_BuildVXRVolumesHBM(szMap, pVXRVolumes);
}

BOOL VXRExt_BuildVXRVolumeHBM(const char *szMntPnt, const char *szMap, VXR_VOLUME *pVXRVolume) {
  const CallTrace trace = TraceCall();
  if (!Given(szMntPnt, "szMntPnt") || !Given(pVXRVolume, "pVXRVolume")) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:mntpnt = %s\n", __func__, szMntPnt);
  StoreText(pVXRVolume->MntPnt, szMntPnt);
  FillBackupName(szMntPnt, szMap, pVXRVolume, __func__);
  if (!FillInformation(szMntPnt, pVXRVolume, __func__) || !FillGuidPath(szMntPnt, pVXRVolume, __func__)) return FALSE;
  // No access rights: the questions need none, and a volume in use can still be asked.
  const OpenedFile volume = OpenLogged(pVXRVolume->Volume, 0, FILE_SHARE_READ, OPEN_EXISTING);
  return volume != nullptr && FillFromOpenVolume(volume.get(), szMntPnt[0], pVXRVolume, __func__);
}

BOOL VXRExt_BuildVXRVolDisksHBM(HANDLE hVolume, VXR_VOLDISKS *pVXRVolDisks) {
  const CallTrace trace = TraceCall();
  if (hVolume == INVALID_HANDLE_VALUE) {
    VXRDbg_Log(kError, "ERROR:%s:hVolume is INVALID_HANDLE_VALUE\n", __func__);
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
    LogFailure("IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", "None");
    if (error == ERROR_INSUFFICIENT_BUFFER) {
      VXRDbg_Log(kError, "ERROR:%s:input buffer is too small!\tneed %d extents!\n", __func__,
                 answer->NumberOfDiskExtents);
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
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetDiskDevicePath:failed for disk %d!\n", __func__, pDiskExtent->DiskNumber);
    return FALSE;
  }
  VXRDbg_Log(kStatus, "CHECK:%s:check %s...\n", __func__, disk.get());  // at every level: what follows is about it
  const HeapText controller = RecordDriver(VXR_DEVTYPE_DISKDRIVE, disk.get(), &pVXRVolDisk->DiskDriver, __func__);
  if (controller == nullptr) return FALSE;
  const bool ide = BeginsWith(disk.get(), "IDE");
  const HeapText extender = RecordDriver(ide ? VXR_DEVTYPE_HDC : VXR_DEVTYPE_SCSIADAPTER, controller.get(),
                                         &pVXRVolDisk->CtrlDriver, __func__);
  if (extender == nullptr) return FALSE;
  return !ide || RecordDriver(VXR_DEVTYPE_HDC, extender.get(), &pVXRVolDisk->BusEDriver, __func__) != nullptr;
}
