#include "inf/critical_device.h"

#include <cstring>

#include "device/properties.h"
#include "device/records.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/newer_record.h"
#include "log/log.h"
#include "registry/values.h"

namespace {

bool Empty(const char *text) { return text == nullptr || *text == '\0'; }

// The entry's name: an id with "#" for each "\". Null, without a log line of its own, when there is no id or no memory.
HeapText EntryName(const VXR_DRIVER &driver, const Caller &trace) {
  const char *hardwareId = driver.pDrvInfoDetailData != nullptr ? driver.pDrvInfoDetailData->HardwareID : nullptr;
  const bool byHardwareId = !Empty(hardwareId);
  const char *id = byHardwareId ? hardwareId : driver.szMatchedID;
  if (Empty(id)) return nullptr;
  HeapText name = VXREng_FixString('\\', '#', id);
  if (name != nullptr) {
    trace.Check("fixed from %s id=%s --> key=%s!\n", byHardwareId ? "hardware" : "matched", id, name.get());
  }
  return name;
}

// Writes a text into the entry. `label` names the value in the line of a failure.
bool WriteText(const char *entry, const char *value, const char *label, const char *text, const Caller &trace) {
  const DWORD size = static_cast<DWORD>(std::strlen(text) + 1);
  if (!VXRReg_SetRegValueToHive(VXR_KEY_ORG_CRITDEVDB, entry, value, text, REG_SZ, size)) {
    trace.Error("VXRReg_SetRegValueToHive(%s:%s) failed!\n", entry, label);
    return false;
  }
  trace.Check("setting %s:%s=%s...ok\n", entry, value, text);
  return true;
}

}  // namespace

BOOL VXRDev_PostGetDriver(VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRDriver, "pVXRDriver") || !Given(pVXRDevice, "pVXRDevice")) return FALSE;
  trace.Check("instance=%s\n", pVXRDevice->szInstanceID);
  const DeviceSet set = PresentDevices(&pVXRDevice->guDevice);
  if (set == nullptr) {
    trace.Error("SetupDiGetClassDevs():failed:ec=0x%08x\n", platform::GetLastError());
    return FALSE;
  }
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  if (!platform::SetupDiEnumDeviceInfo(set.get(), pVXRDevice->iDevEnum, &device)) {
    trace.Error("SetupDiEnumDeviceInfo():failed for index=%d!ec=0x%08x\n", pVXRDevice->iDevEnum,
                platform::GetLastError());
    return FALSE;
  }
  if (!VXRDev_CreateRegCRCDB(&pVXRDevice->guDevice, set.get(), &device, pVXRDriver)) {
    trace.Error("VXRDev_CreateRegCRCDB():failed \n");
    return FALSE;
  }
  return TRUE;
}

BOOL VXRDev_CreateRegCRCDB(const GUID *classGuid, HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData,
                           VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRDriver, "pVXRDriver")) return FALSE;
  const HeapText entry = EntryName(*pVXRDriver, trace);
  if (entry == nullptr) {
    trace.Error("no id, or no memory, to name the critical-device entry after, nothing written\n");
    return FALSE;
  }
  // Windows does not take an entry without a service for a driver, so we look for one before writing anything.
  HeapText registered;
  const char *service = pVXRDriver->szService;
  const bool fromInf = !Empty(service);
  if (!fromInf) {
    DWORD type = 0;
    DWORD size = 0;
    registered = VXRDev_GetRegPropByDevInfo(hDevInfo, pDevInfoData, SPDRP_SERVICE, &type, &size);
    service = registered.get();
  }
  if (Empty(service)) {
    trace.Error("no service name for %s in the inf file or the local registry, nothing written\n", entry.get());
    return FALSE;
  }
  if (WantsNewerRecord()) return VXRDev_CreateNewerRecord(classGuid, service, pVXRDriver);
  const HeapText guid = VXRDev_GetGuidString(classGuid, TRUE);
  if (guid == nullptr || !WriteText(entry.get(), "ClassGUID", "ClassGuid", guid.get(), trace)) return FALSE;
  trace.Check(fromInf ? "service name from inf is:%s\n" : "service name from local reg is:%s\n", service);
  return WriteText(entry.get(), "Service", "Service", service, trace);
}
