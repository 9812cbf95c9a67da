#include "device/scan/disk_scan.h"

#include <cstring>

#include "bmext/target_os.h"
#include "device/class_repair.h"
#include "device/properties.h"
#include "device/records.h"
#include "device/scan/devices_above.h"
#include "device/scan/disk_identity.h"
#include "engine/base/decisions.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "engine/paths/path_catalogue.h"
#include "inf/search/driver_search.h"
#include "log/dump.h"
#include "log/log.h"
#include "package/device_driver.h"
#include "platform/scope_guard.h"
#include "restore/settings.h"

namespace {

bool ByWindowsRules() { return VXRRlm_GetChoices().rules == DriverRules::kWindows; }

void ShowNoDriver(const char *instanceId) {
  platform::ReportDecision(VXRMACHINE_DEVICE_FAILED, instanceId);
  VXREng_StatusMsg(VXR_RESULT_NO_DRIVER, "Failed to locate driver files for device %s",
                   instanceId == nullptr ? "N/A" : instanceId);
}

// --- Present devices ------------------------------------------------------------------------------------------------

DeviceSet PresentDevicesOfType(DWORD deviceType) {
  if (deviceType == VXR_DEVTYPE_UNKNOWN) return PresentDevices(nullptr);
  GUID classGuid = {};
  VXRDev_GetGuidByDevType(deviceType, &classGuid);
  return PresentDevices(&classGuid);
}

void LogNoInstanceId(InstanceIdStep failed, const Caller &trace) {
  const DWORD code = platform::GetLastError();
  switch (failed) {
    case InstanceIdStep::kSize:
      return trace.Error("SetupDiGetDeviceInstanceId():ec=0x%08x:failed to get size!\n", code);
    case InstanceIdStep::kMemory:
      return trace.Error("LocallAlloc() failed!ec=0x%08x\n", code);
    case InstanceIdStep::kText:
      return trace.Error("SetupDiGetDeviceInstanceId() failed!ec=0x%08x\n", code);
  }
}

char *ReadIds(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property) {
  DWORD type = 0, size = 0;
  return VXRDev_GetRegPropByDevInfo(set, device, property, &type, &size).release();
}

// Id of the device at `index` when it begins with the one sought; null, after logging, when it does not.
HeapText MatchDevice(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD index, const char *sought, const Caller &trace) {
  trace.Flush("iDevEnum=%d...\n", index);
  InstanceIdStep failed = {};
  HeapText id = ReadInstanceId(set, device, nullptr, &failed, trace);
  if (id == nullptr) {
    LogNoInstanceId(failed, trace);
    return nullptr;
  }
  trace.Flush("checking %d:%s\n", index, id.get());
  if (BeginsWith(id.get(), sought)) return id;
  trace.Check("Not-Match:current inst=%s\n", id.get());
  trace.Flush("\t input instance id=%s\n", sought);
  trace.Flush("\t found instance id=%s\n", id.get());
  return nullptr;
}

// --- Device records -------------------------------------------------------------------------------------------------

// The directories to search for the type's driver: IDE controllers are served by the recovery environment's own INF
// files, all others by the restore job's. Windows' rules know no such difference, and look into both for every device.
HeapText InfDirectories(DWORD deviceType, const Caller &trace) {
  const bool ide = deviceType == VXR_DEVTYPE_HDC && !ByWindowsRules();
  HeapText directories = VXREng_GetStringAs(ide ? VXR_DIR_WPEINF : VXR_DIR_RLMINF, nullptr);
  if (directories == nullptr) {
    trace.Failed("VXREng_GetStringAs", ide ? "VXR_DIR_WPEINF" : "VXR_DIR_RLMINF");
  } else if (ide) {
    trace.Check("VXR_DEVTYPE_HDC:using system inf path as:%s\n", directories.get());
  }
  return directories;
}

// Gives a new record its decorations and fills it; FALSE, after logging, at the first step that fails.
BOOL BuildDevice(DWORD diskIndex, DWORD deviceType, char *instanceId, BOOL inject, VXR_DEVICE *device,
                 const Caller &trace) {
  if (!ByWindowsRules()) {
    device->szTargetOS = VXRExt_GetTargetOS().release();
    if (device->szTargetOS == nullptr) {
      trace.Failed("VXRExt_GetTargetOS", "Target OS to be restored is not supported!");
      return FALSE;
    }
  }
  device->bInject = inject;
  const HeapText directories = InfDirectories(deviceType, trace);
  if (directories == nullptr) return FALSE;
  if (VXRDev_InitDevice(diskIndex, deviceType, instanceId, directories.get(), device)) return TRUE;
  trace.Error("VXRDev_InitDevice() failed\n");
  return FALSE;
}

// The record of a disk that the job names, without its controller; null when it cannot be built.
VXR_DEVICE *BuildDisk(const char *disk, DWORD diskIndex, BOOL inject, const Caller &trace) {
  if (disk == nullptr) {
    trace.Failed("VXRRlm_GetBootDisk", "None");
    platform::ReportDecision(VXRMACHINE_BOOT_DISK_NOT_FOUND, nullptr);
    return nullptr;
  }
  trace.Check("checking disk:%s...\n", disk);
  HeapText instanceId = VXRDev_GetDiskInstanceID(disk, 0);
  if (instanceId == nullptr) {
    trace.Failed("VXRDev_GetDiskInstanceID", "None");
    platform::ReportDecision(VXRMACHINE_BOOT_DISK_NOT_FOUND, disk);
    return nullptr;
  }
  trace.Check("disk %s:instid=%s\n", disk, instanceId.get());
  VXR_DEVICE *device = VXRDev_GetDeviceByInstanceID(diskIndex, VXR_DEVTYPE_DISKDRIVE, &instanceId, inject);
  if (device == nullptr) {
    trace.Failed("VXRDev_GetDeviceByInstanceID", instanceId.get());
    ShowNoDriver(instanceId.get());
  }
  return device;
}

// The type of the disk's controller, by the bus that the disk's id names. AHCI controllers of newer systems are IDE
// controllers that name their disks as SCSI: Windows' rules go by the controller's class.
DWORD ControllerType(const VXR_DEVICE &disk, bool ide, const Caller &trace) {
  const DWORD byBus = ide ? VXR_DEVTYPE_HDC : VXR_DEVTYPE_SCSIADAPTER;
  if (!ByWindowsRules()) return byBus;
  const std::vector<DeviceAbove> above = DevicesAbove(disk.hDevInst, trace);
  for (const DWORD type : {VXR_DEVTYPE_HDC, VXR_DEVTYPE_SCSIADAPTER}) {
    GUID classGuid = {};
    VXRDev_GetGuidByDevType(type, &classGuid);
    if (!above.empty() && std::memcmp(&above.front().classGuid, &classGuid, sizeof classGuid) == 0) return type;
  }
  return byBus;
}

// Links the disk's controller above it, by the bus that the disk's id names. On other buses none is looked for.
void LinkController(VXR_DEVICE *disk, BOOL inject, const Caller &trace) {
  trace.Flush("check ENUM=%s\n", disk->szInstanceID);
  const bool ide = BeginsWith(disk->szInstanceID, "IDE");
  if (!ide && !BeginsWith(disk->szInstanceID, "SCSI")) {
    platform::ReportDecision(VXRMACHINE_DISK_ALONE, disk->szInstanceID);
    return;
  }
  disk->pVXRDevParent = VXRDev_GetDiskCtrlDevice(0, ControllerType(*disk, ide, trace), disk->hDevInst, inject);
}

BOOL FindByWindowsRules(VXR_DEVICE *device, const Caller &trace) {
  std::vector<package::DeviceIds> above;
  for (DeviceAbove &one : DevicesAbove(device->hDevInst, trace)) above.push_back(std::move(one.ids));
  // The controller of an IDE channel is a device of the run itself, and served next.
  if (BeginsWith(device->szInstanceID, "PCIIDE") && !above.empty()) above.erase(above.begin());
  if (package::FindDeviceDriver(device, above)) return TRUE;
  trace.Error("FindDeviceDriver() failed\n");
  return FALSE;
}

}  // namespace

BOOL VXRDev_ScanDiskDevices(VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) {
    trace.Null("pVXRParaBlock");
    return FALSE;
  }
  const ScopeGuard end([] { package::EndDriverChoice(); });
  const BOOL inject = pVXRParaBlock->bInject;
  const DWORD before = pVXRParaBlock->dwDevCnt;
  trace.Check("currently has %d vxr devices...\n", before);
  // The disk goes into slot 0, so what an earlier scan left there is given back first.
  if (before != 0) VXRDev_FreeDevices(pVXRParaBlock);
  DWORD found = 0;
  const auto add = [&](const char *name) {
    VXR_DEVICE *disk = BuildDisk(name, found, inject, trace);
    if (disk == nullptr) return;
    LinkController(disk, inject, trace);
    pVXRParaBlock->pVXRDevices[found++] = disk;
  };
  add(VXRRlm_GetBootDisk());
  // A system on several disks needs all of them to start. Only Windows' rules plan for devices one after the other.
  const char *more = ByWindowsRules() ? VXRRlm_GetChoices().disks.c_str() : "";
  for (; *more != '\0' && found < kMaxVxrDevices; more += std::strlen(more) + 1) add(more);
  if (*more != '\0') trace.Warning("%u disks are as many as one run takes, %s is passed over\n", found, more);
  trace.Check("total %d vxr disks found...\n", found - before);
  pVXRParaBlock->dwDevCnt = found;
  return found != before;
}

VXR_DEVICE *VXRDev_GetDeviceByInstanceID(DWORD diskIndex, DWORD deviceType, HeapText *szInstanceID, BOOL bInject) {
  const CallTrace trace = TraceCall();
  char *instanceId = szInstanceID->get();
  if (instanceId == nullptr) {
    trace.Null("szInstanceID");
    return nullptr;
  }
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Checking device with id %s...\n", instanceId);
  platform::ReportDecision(VXRMACHINE_DEVICE_CHECKED, instanceId);
  VXR_DEVICE *device = AllocRecord<VXR_DEVICE>("pVXRDevice").release();
  if (device == nullptr) return nullptr;
  if (!BuildDevice(diskIndex, deviceType, instanceId, bInject, device, trace)) {
    device->szInstanceID = nullptr;  // stays the caller's
    VXRDev_FreeDevice(device);
    return nullptr;
  }
  trace.Check("success:[%p]:%s\n", device, instanceId);
  static_cast<void>(szInstanceID->release());  // the record owns it
  return device;
}

BOOL VXRDev_InitDevice(DWORD diskIndex, DWORD deviceType, char *szInstanceID, const char *szInfDirs,
                       VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (szInfDirs == nullptr) trace.Null("szInfDirs");
  if (pVXRDevice == nullptr) trace.Null("pVXRDevice");
  if (szInstanceID == nullptr) trace.Null("szInstanceID");
  if (szInfDirs == nullptr || pVXRDevice == nullptr || szInstanceID == nullptr) return FALSE;
  trace.Check("initializing %s:total inf dirs=%d\n", szInstanceID, VXREng_GetSubStringCount(szInfDirs));
  if (!VXRDev_FixDevRegistry(deviceType, szInstanceID)) {
    trace.Error("VXRDev_FixDevRegistry() failed\n");
    return FALSE;
  }
  if (!VXRDev_GetDevInfoData(deviceType, szInstanceID, pVXRDevice)) {
    trace.Error("VXRDev_GetDevInfoData() failed\n");
    return FALSE;
  }
  pVXRDevice->iBMDevIndex = diskIndex;
  pVXRDevice->VXRDevType = deviceType;
  pVXRDevice->szInstanceID = szInstanceID;
  ReportTexts(VXRMACHINE_DEVICE_ID, pVXRDevice->szHardwareID);
  ReportTexts(VXRMACHINE_DEVICE_ID, pVXRDevice->szCompatibleIDs);
  ReportTexts(VXRMACHINE_DEVICE_TARGET, pVXRDevice->szTargetOS);
  VXRDbg_DumpGuid(&pVXRDevice->guDevice, trace.name);
  if (ByWindowsRules()) return FindByWindowsRules(pVXRDevice, trace);
  if (!VXRDev_GetDriverInfDirs(szInfDirs, pVXRDevice)) {
    trace.Error("VXRDev_GetDriverInfDirs() failed\n");
    return FALSE;
  }
  return TRUE;
}

BOOL VXRDev_GetDevInfoData(DWORD deviceType, const char *szInstanceID, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (pVXRDevice == nullptr) trace.Null("pVXRDevice");
  if (szInstanceID == nullptr) trace.Null("szInstanceID");
  if (pVXRDevice == nullptr || szInstanceID == nullptr) return FALSE;
  const DeviceSet set = PresentDevicesOfType(deviceType);
  if (set == nullptr) {
    trace.Error("SetupDiGetClassDevs():failed:ec=0x%08x\n", platform::GetLastError());
    return FALSE;
  }
  trace.Flush("Start enum...\n");
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  for (DWORD i = 0; platform::SetupDiEnumDeviceInfo(set.get(), i, &device); ++i) {
    const HeapText id = MatchDevice(set.get(), &device, i, szInstanceID, trace);
    if (id == nullptr) continue;
    pVXRDevice->iDevEnum = i;
    pVXRDevice->hDevInst = device.DevInst;
    pVXRDevice->guDevice = device.ClassGuid;
    pVXRDevice->szHardwareID = ReadIds(set.get(), &device, SPDRP_HARDWAREID);
    pVXRDevice->szCompatibleIDs = ReadIds(set.get(), &device, SPDRP_COMPATIBLEIDS);
    trace.Check("found match!\n");
    VXRDbg_Log(kCheck, "\t input instance id=%s\n", szInstanceID);
    VXRDbg_Log(kCheck, "\t found instance id=%s\n", id.get());
    return TRUE;
  }
  trace.Error("failed to find devinfodata for %s!ec=0x%08x\n", szInstanceID, platform::GetLastError());
  platform::ReportDecision(VXRMACHINE_DEVICE_OF_OTHER_CLASS, szInstanceID, nullptr, deviceType);
  return FALSE;
}

HeapText VXRDev_GetParentInstanceID(DWORD hDevInst, DWORD *size) {
  const CallTrace trace = TraceCall();
  *size = 0;
  trace.Check("Input child devinst=%x\n", hDevInst);
  DEVINST parent = 0;
  CONFIGRET result = platform::CM_Get_Parent(&parent, hDevInst, 0);
  if (result != CR_SUCCESS) {
    trace.Error("CM_Get_Parent():failed for child devinst=%x! cm ec=%x\n", hDevInst, result);
    return nullptr;
  }
  DWORD length = 0;
  result = platform::CM_Get_Device_ID_Size(&length, parent, 0);
  if (result != CR_SUCCESS) {
    trace.Error("CM_Get_Device_ID_Size():failed for parent devinst=%x! cm ec=%x\n", parent, result);
    return nullptr;
  }
  const DWORD needed = length + 1;
  trace.Check("CM_Get_Device_ID_Size=%x:dwInstIDSize=%x\n", length, needed);
  HeapText id = AllocText(needed, "szInstanceID");
  if (id == nullptr) return nullptr;
  result = platform::CM_Get_Device_IDA(parent, id.get(), needed, 0);
  if (result != CR_SUCCESS) {
    trace.Error("CM_Get_Device_ID():failed for parent devinst=%x! cm ec=%x\n", parent, result);
    return nullptr;
  }
  *size = needed;
  trace.Check("retrieve parent instance id ok =%s\n", id.get());
  return id;
}

VXR_DEVICE *VXRDev_GetDiskCtrlDevice(DWORD diskIndex, DWORD deviceType, DWORD hDevInst, BOOL bInject) {
  const CallTrace trace = TraceCall();
  DWORD size = 0;
  HeapText parentId = VXRDev_GetParentInstanceID(hDevInst, &size);
  if (parentId == nullptr) {
    trace.Failed("VXRDev_GetParentInstanceID", "None");
    ShowNoDriver(nullptr);
    return nullptr;
  }
  VXR_DEVICE *controller = VXRDev_GetDeviceByInstanceID(diskIndex, deviceType, &parentId, bInject);
  if (controller == nullptr) {
    trace.Failed("VXRDev_GetDeviceByInstanceID", parentId.get());
    ShowNoDriver(parentId.get());
    return nullptr;
  }
  trace.Check("ctrl device=%p:%s\n", controller, controller->szInstanceID);
  if (BeginsWith(controller->szInstanceID, "PCIIDE")) {
    trace.Check("need bus extender device for ide\n");
    controller->pVXRDevParent = VXRDev_GetDiskCtrlDevice(diskIndex, VXR_DEVTYPE_HDC, controller->hDevInst, bInject);
  }
  return controller;
}
