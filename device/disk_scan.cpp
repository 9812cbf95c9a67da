#include "device/disk_scan.h"

#include "bmext/target_os.h"
#include "device/class_repair.h"
#include "device/disk_identity.h"
#include "device/properties.h"
#include "device/records.h"
#include "engine/base/decisions.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "engine/path_catalogue.h"
#include "inf/driver_search.h"
#include "log/dump.h"
#include "log/log.h"
#include "restore/settings.h"

namespace {

constexpr DWORD kNoDriver = 3;  // result code

void ShowNoDriver(const char *instanceId) {
  platform::ReportDecision(VXRMACHINE_DEVICE_FAILED, instanceId);
  VXREng_StatusMsg(kNoDriver, "Failed to locate driver files for device %s",
                   instanceId == nullptr ? "N/A" : instanceId);
}

// --- Present devices ------------------------------------------------------------------------------------------------

DeviceSet PresentDevicesOfType(DWORD deviceType) {
  if (deviceType == VXR_DEVTYPE_UNKNOWN) return PresentDevices(nullptr);
  GUID classGuid = {};
  VXRDev_GetGuidByDevType(deviceType, &classGuid);
  return PresentDevices(&classGuid);
}

HeapText ReadInstanceId(HDEVINFO set, SP_DEVINFO_DATA *device, const char *caller) {
  DWORD size = 0;
  const BOOL sized = platform::SetupDiGetDeviceInstanceIdA(set, device, nullptr, 0, &size);
  if (size == 0 || (!sized && platform::GetLastError() != ERROR_INSUFFICIENT_BUFFER)) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetDeviceInstanceId():ec=0x%08x:failed to get size!\n", caller,
               platform::GetLastError());
    return nullptr;
  }
  HeapText id = AllocTextUnlogged(size);
  if (id == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:LocallAlloc() failed!ec=0x%08x\n", caller, platform::GetLastError());
    return nullptr;
  }
  if (!platform::SetupDiGetDeviceInstanceIdA(set, device, id.get(), size, nullptr)) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetDeviceInstanceId() failed!ec=0x%08x\n", caller, platform::GetLastError());
    return nullptr;
  }
  return id;
}

char *ReadIds(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property) {
  DWORD type = 0, size = 0;
  return VXRDev_GetRegPropByDevInfo(set, device, property, &type, &size).release();
}

// Id of the device at `index` when it begins with the one sought; null, after logging, when it does not.
HeapText MatchDevice(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD index, const char *sought, const char *caller) {
  VXRDbg_Log(kFlush, "FLUSH:%s:iDevEnum=%d...\n", caller, index);
  HeapText id = ReadInstanceId(set, device, caller);
  if (id == nullptr) return nullptr;
  VXRDbg_Log(kFlush, "FLUSH:%s:checking %d:%s\n", caller, index, id.get());
  if (BeginsWith(id.get(), sought)) return id;
  VXRDbg_Log(kCheck, "CHECK:%s:Not-Match:current inst=%s\n", caller, id.get());
  VXRDbg_Log(kFlush, "FLUSH:%s:\t input instance id=%s\n", caller, sought);
  VXRDbg_Log(kFlush, "FLUSH:%s:\t found instance id=%s\n", caller, id.get());
  return nullptr;
}

// --- Device records -------------------------------------------------------------------------------------------------

// The directories to search for the type's driver: IDE controllers are served by the recovery environment's own INF
// files, all others by the restore job's.
HeapText InfDirectories(DWORD deviceType, const char *caller) {
  const bool ide = deviceType == VXR_DEVTYPE_HDC;
  HeapText directories = VXREng_GetStringAs(ide ? VXR_DIR_WPEINF : VXR_DIR_RLMINF, nullptr);
  if (directories == nullptr) {
    LogFailure("VXREng_GetStringAs", ide ? "VXR_DIR_WPEINF" : "VXR_DIR_RLMINF", caller);
  } else if (ide) {
    VXRDbg_Log(kCheck, "CHECK:%s:VXR_DEVTYPE_HDC:using system inf path as:%s\n", caller, directories.get());
  }
  return directories;
}

// Gives a new record its decorations and fills it; FALSE, after logging, at the first step that fails.
BOOL BuildDevice(DWORD diskIndex, DWORD deviceType, char *instanceId, BOOL inject, VXR_DEVICE *device,
                 const char *caller) {
  device->szTargetOS = VXRExt_GetTargetOS().release();
  if (device->szTargetOS == nullptr) {
    LogFailure("VXRExt_GetTargetOS", "Target OS to be restored is not supported!", caller);
    return FALSE;
  }
  device->bInject = inject;
  const HeapText directories = InfDirectories(deviceType, caller);
  if (directories == nullptr) return FALSE;
  if (VXRDev_InitDevice(diskIndex, deviceType, instanceId, directories.get(), device)) return TRUE;
  VXRDbg_Log(kError, "ERROR:%s:VXRDev_InitDevice() failed\n", caller);
  return FALSE;
}

// The record of the job's boot disk, without its controller; null when it cannot be built.
VXR_DEVICE *BuildBootDisk(BOOL inject, const char *caller) {
  const char *disk = VXRRlm_GetBootDisk();
  if (disk == nullptr) {
    LogFailure("VXRRlm_GetBootDisk", "None", caller);
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:checking disk:%s...\n", caller, disk);
  HeapText instanceId = VXRDev_GetDiskInstanceID(disk, 0);
  if (instanceId == nullptr) {
    LogFailure("VXRDev_GetDiskInstanceID", "None", caller);
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:disk %s:instid=%s\n", caller, disk, instanceId.get());
  VXR_DEVICE *device = VXRDev_GetDeviceByInstanceID(0, VXR_DEVTYPE_DISKDRIVE, &instanceId, inject);
  if (device == nullptr) {
    LogFailure("VXRDev_GetDeviceByInstanceID", instanceId.get(), caller);
    ShowNoDriver(instanceId.get());
  }
  return device;
}

// Links the disk's controller above it, by the bus that the disk's id names. On other buses none is looked for.
void LinkController(VXR_DEVICE *disk, BOOL inject, const char *caller) {
  VXRDbg_Log(kFlush, "FLUSH:%s:check ENUM=%s\n", caller, disk->szInstanceID);
  const bool ide = BeginsWith(disk->szInstanceID, "IDE");
  if (!ide && !BeginsWith(disk->szInstanceID, "SCSI")) {
    platform::ReportDecision(VXRMACHINE_DISK_ALONE, disk->szInstanceID);
    return;
  }
  disk->pVXRDevParent =
      VXRDev_GetDiskCtrlDevice(0, ide ? VXR_DEVTYPE_HDC : VXR_DEVTYPE_SCSIADAPTER, disk->hDevInst, inject);
}

}  // namespace

BOOL VXRDev_ScanDiskDevices(VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) {
    LogNull("pVXRParaBlock");
    return FALSE;
  }
  const BOOL inject = pVXRParaBlock->bInject;
  const DWORD before = pVXRParaBlock->dwDevCnt;
  VXRDbg_Log(kCheck, "CHECK:%s:currently has %d vxr devices...\n", __func__, before);
  // The disk goes into slot 0, so what an earlier scan left there is given back first.
  if (before != 0) VXRDev_FreeDevices(pVXRParaBlock);
  DWORD found = 0;
  VXR_DEVICE *disk = BuildBootDisk(inject, __func__);
  if (disk != nullptr) {
    LinkController(disk, inject, __func__);
    pVXRParaBlock->pVXRDevices[found++] = disk;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:total %d vxr disks found...\n", __func__, found - before);
  pVXRParaBlock->dwDevCnt = found;
  return found != before;
}

VXR_DEVICE *VXRDev_GetDeviceByInstanceID(DWORD diskIndex, DWORD deviceType, HeapText *szInstanceID, BOOL bInject) {
  const CallTrace trace = TraceCall();
  char *instanceId = szInstanceID->get();
  if (instanceId == nullptr) {
    LogNull("szInstanceID");
    return nullptr;
  }
  VXREng_StatusMsg(kProgress, "Checking device with id %s...\n", instanceId);
  platform::ReportDecision(VXRMACHINE_DEVICE_CHECKED, instanceId);
  VXR_DEVICE *device = AllocRecord<VXR_DEVICE>("pVXRDevice").release();
  if (device == nullptr) return nullptr;
  if (!BuildDevice(diskIndex, deviceType, instanceId, bInject, device, __func__)) {
    device->szInstanceID = nullptr;  // stays the caller's
    VXRDev_FreeDevice(device);
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:success:[%p]:%s\n", __func__, device, instanceId);
  static_cast<void>(szInstanceID->release());  // the record owns it
  return device;
}

BOOL VXRDev_InitDevice(DWORD diskIndex, DWORD deviceType, char *szInstanceID, const char *szInfDirs,
                       VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (szInfDirs == nullptr) LogNull("szInfDirs");
  if (pVXRDevice == nullptr) LogNull("pVXRDevice");
  if (szInstanceID == nullptr) LogNull("szInstanceID");
  if (szInfDirs == nullptr || pVXRDevice == nullptr || szInstanceID == nullptr) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:initializing %s:total inf dirs=%d\n", __func__, szInstanceID,
             VXREng_GetSubStringCount(szInfDirs));
  if (!VXRDev_FixDevRegistry(deviceType, szInstanceID)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_FixDevRegistry() failed\n", __func__);
    return FALSE;
  }
  if (!VXRDev_GetDevInfoData(deviceType, szInstanceID, pVXRDevice)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetDevInfoData() failed\n", __func__);
    return FALSE;
  }
  pVXRDevice->iBMDevIndex = diskIndex;
  pVXRDevice->VXRDevType = deviceType;
  pVXRDevice->szInstanceID = szInstanceID;
  ReportTexts(VXRMACHINE_DEVICE_ID, pVXRDevice->szHardwareID);
  ReportTexts(VXRMACHINE_DEVICE_ID, pVXRDevice->szCompatibleIDs);
  ReportTexts(VXRMACHINE_DEVICE_TARGET, pVXRDevice->szTargetOS);
  VXRDbg_DumpGuid(&pVXRDevice->guDevice, __func__);
  if (!VXRDev_GetDriverInfDirs(szInfDirs, pVXRDevice)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetDriverInfDirs() failed\n", __func__);
    return FALSE;
  }
  return TRUE;
}

BOOL VXRDev_GetDevInfoData(DWORD deviceType, const char *szInstanceID, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (pVXRDevice == nullptr) LogNull("pVXRDevice");
  if (szInstanceID == nullptr) LogNull("szInstanceID");
  if (pVXRDevice == nullptr || szInstanceID == nullptr) return FALSE;
  const DeviceSet set = PresentDevicesOfType(deviceType);
  if (set == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetClassDevs():failed:ec=0x%08x\n", __func__, platform::GetLastError());
    return FALSE;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:Start enum...\n", __func__);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  for (DWORD i = 0; platform::SetupDiEnumDeviceInfo(set.get(), i, &device); ++i) {
    const HeapText id = MatchDevice(set.get(), &device, i, szInstanceID, __func__);
    if (id == nullptr) continue;
    pVXRDevice->iDevEnum = i;
    pVXRDevice->hDevInst = device.DevInst;
    pVXRDevice->guDevice = device.ClassGuid;
    pVXRDevice->szHardwareID = ReadIds(set.get(), &device, SPDRP_HARDWAREID);
    pVXRDevice->szCompatibleIDs = ReadIds(set.get(), &device, SPDRP_COMPATIBLEIDS);
    VXRDbg_Log(kCheck, "CHECK:%s:found match!\n", __func__);
    VXRDbg_Log(kCheck, "\t input instance id=%s\n", szInstanceID);
    VXRDbg_Log(kCheck, "\t found instance id=%s\n", id.get());
    return TRUE;
  }
  VXRDbg_Log(kError, "ERROR:%s:failed to find devinfodata for %s!ec=0x%08x\n", __func__, szInstanceID,
             platform::GetLastError());
  platform::ReportDecision(VXRMACHINE_DEVICE_OF_OTHER_CLASS, szInstanceID, nullptr, deviceType);
  return FALSE;
}

HeapText VXRDev_GetParentInstanceID(DWORD hDevInst, DWORD *size) {
  const CallTrace trace = TraceCall();
  *size = 0;
  VXRDbg_Log(kCheck, "CHECK:%s:Input child devinst=%x\n", __func__, hDevInst);
  DEVINST parent = 0;
  CONFIGRET result = platform::CM_Get_Parent(&parent, hDevInst, 0);
  if (result != CR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:CM_Get_Parent():failed for child devinst=%x! cm ec=%x\n", __func__, hDevInst, result);
    return nullptr;
  }
  DWORD length = 0;
  result = platform::CM_Get_Device_ID_Size(&length, parent, 0);
  if (result != CR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:CM_Get_Device_ID_Size():failed for parent devinst=%x! cm ec=%x\n", __func__, parent,
               result);
    return nullptr;
  }
  const DWORD needed = length + 1;
  VXRDbg_Log(kCheck, "CHECK:%s:CM_Get_Device_ID_Size=%x:dwInstIDSize=%x\n", __func__, length, needed);
  HeapText id = AllocText(needed, "szInstanceID");
  if (id == nullptr) return nullptr;
  result = platform::CM_Get_Device_IDA(parent, id.get(), needed, 0);
  if (result != CR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:CM_Get_Device_ID():failed for parent devinst=%x! cm ec=%x\n", __func__, parent,
               result);
    return nullptr;
  }
  *size = needed;
  VXRDbg_Log(kCheck, "CHECK:%s:retrieve parent instance id ok =%s\n", __func__, id.get());
  return id;
}

VXR_DEVICE *VXRDev_GetDiskCtrlDevice(DWORD diskIndex, DWORD deviceType, DWORD hDevInst, BOOL bInject) {
  const CallTrace trace = TraceCall();
  DWORD size = 0;
  HeapText parentId = VXRDev_GetParentInstanceID(hDevInst, &size);
  if (parentId == nullptr) {
    LogFailure("VXRDev_GetParentInstanceID", "None");
    ShowNoDriver(nullptr);
    return nullptr;
  }
  VXR_DEVICE *controller = VXRDev_GetDeviceByInstanceID(diskIndex, deviceType, &parentId, bInject);
  if (controller == nullptr) {
    LogFailure("VXRDev_GetDeviceByInstanceID", parentId.get());
    ShowNoDriver(parentId.get());
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:ctrl device=%p:%s\n", __func__, controller, controller->szInstanceID);
  if (BeginsWith(controller->szInstanceID, "PCIIDE")) {
    VXRDbg_Log(kCheck, "CHECK:%s:need bus extender device for ide\n", __func__);
    controller->pVXRDevParent = VXRDev_GetDiskCtrlDevice(diskIndex, VXR_DEVTYPE_HDC, controller->hDevInst, bInject);
  }
  return controller;
}
