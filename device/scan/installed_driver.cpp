#include "device/scan/installed_driver.h"

#include <algorithm>
#include <cstring>

#include "device/class_repair.h"
#include "device/properties.h"
#include "device/records.h"
#include "device/scan/disk_scan.h"
#include "device/scan/file_facts.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "registry/values.h"

namespace {

constexpr char kServicesKey[] = "SYSTEM\\CurrentControlSet\\Services";
constexpr char kDriversFolder[] = "system32\\drivers\\";

VXR_GUID Store(const GUID &guid) {
  VXR_GUID stored = {VxrPut32(guid.Data1), VxrPut16(guid.Data2), VxrPut16(guid.Data3), {}};
  std::memcpy(stored.Data4, guid.Data4, sizeof stored.Data4);
  return stored;
}

// --- Present devices ------------------------------------------------------------------------------------------------

// Fills the record for one device of the set when the sought id begins with the device's own. Returns the parent's id;
// null when it is another device, or one that not enough is known of.
HeapText RecordIfSought(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD deviceType, const char *sought, VXR_DEVDRV *record,
                        const Caller &trace) {
  InstanceIdStep failed = {};
  const HeapText id = ReadInstanceId(set, device, "szInstanceID", &failed, trace);
  if (id == nullptr && failed != InstanceIdStep::kMemory) trace.Failed("SetupDiGetDeviceInstanceId()", sought);
  if (id == nullptr || !BeginsWith(sought, id.get())) return nullptr;
  if (!VXRDev_GetVXRDevDriverDetail(set, device, record)) return nullptr;
  record->DeviceType = VxrPut32(deviceType);
  StoreText(record->InstanceID, id.get());
  DWORD size = 0;
  return VXRDev_GetParentInstanceID(device->DevInst, &size);
}

// --- The driver -----------------------------------------------------------------------------------------------------

using DriverInfo = HeapPtr<SP_DRVINFO_DATA_A>;
using DriverInfoDetail = HeapPtr<SP_DRVINFO_DETAIL_DATA_A>;

// The best of the device's compatible drivers, which is the one that it has.
DriverInfo ReadDriverInfo(HDEVINFO set, SP_DEVINFO_DATA *device, const Caller &trace) {
  if (!platform::SetupDiBuildDriverInfoList(set, device, SPDIT_COMPATDRIVER)) {
    trace.Failed("SetupDiBuildDriverInfoList", "None");
    return nullptr;
  }
  DriverInfo driver = AllocRecord<SP_DRVINFO_DATA_A>("pDrvIData", trace);
  if (driver == nullptr) return nullptr;
  driver->cbSize = sizeof(SP_DRVINFO_DATA_A);
  if (!platform::SetupDiEnumDriverInfoA(set, device, SPDIT_COMPATDRIVER, 0, driver.get())) {
    trace.Failed("SetupDiEnumDriverInfo", "None");
    return nullptr;
  }
  return driver;
}

DriverInfoDetail ReadDriverInfoDetail(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DRVINFO_DATA_A *driver,
                                      const Caller &trace) {
  DWORD size = 0;
  if (!platform::SetupDiGetDriverInfoDetailA(set, device, driver, nullptr, 0, &size) ||
      size < sizeof(SP_DRVINFO_DETAIL_DATA_A)) {
    trace.Failed("SetupDiGetDriverInfoDetail", "failed to get size!");
    return nullptr;
  }
  DriverInfoDetail detail(static_cast<SP_DRVINFO_DETAIL_DATA_A *>(AllocHeap(size, "pDrvIDData", trace)));
  if (detail == nullptr) return nullptr;
  detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_A);
  if (!platform::SetupDiGetDriverInfoDetailA(set, device, driver, detail.get(), size, nullptr)) {
    trace.Failed("SetupDiGetDriverInfoDetail", "None");
    return nullptr;
  }
  return detail;
}

// --- The service ----------------------------------------------------------------------------------------------------

HeapText ReadServiceValue(const char *key, const char *value, DWORD *size, const Caller &trace) {
  DWORD type = 0;
  HeapText data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, key, value, &type, size);
  if (data == nullptr) trace.Failed("VXRReg_GetRegistryValue", value);
  return data;
}

// The value's first 32 bits, whatever its type; those that a shorter value lacks are zero.
BOOL FillNumber(const char *key, const char *value, VXR_LE32 *field, const Caller &trace) {
  DWORD size = 0;
  const HeapText data = ReadServiceValue(key, value, &size, trace);
  if (data == nullptr) return FALSE;
  *field = {};
  std::memcpy(field->b, data.get(), std::min<SIZE_T>(size, sizeof field->b));
  return TRUE;
}

template <SIZE_T kSize>
BOOL FillText(const char *key, const char *value, char (&field)[kSize], const Caller &trace) {
  DWORD size = 0;
  const HeapText data = ReadServiceValue(key, value, &size, trace);
  if (data == nullptr) return FALSE;
  StoreText(field, data.get());
  return TRUE;
}

// A service without group or tag is complete.
BOOL FillService(HDEVINFO set, SP_DEVINFO_DATA *device, VXR_SERVICE *service, const Caller &trace) {
  DWORD type = 0, size = 0;
  const HeapText name = VXRDev_GetRegPropByDevInfo(set, device, SPDRP_SERVICE, &type, &size);
  if (name == nullptr) {
    trace.Failed("VXRDev_GetRegPropByDevInfo", "None");
    return FALSE;
  }
  StoreText(service->Name, name.get());
  const HeapText key = JoinPath(kServicesKey, name.get(), 0, "szRegKey", trace);
  if (key == nullptr) return FALSE;
  if (!FillNumber(key.get(), "Type", &service->Type, trace) ||
      !FillNumber(key.get(), "Start", &service->Start, trace) ||
      !FillText(key.get(), "ImagePath", service->Image, trace)) {
    return FALSE;
  }
  FillText(key.get(), "Group", service->Group, trace);
  FillNumber(key.get(), "Tag", &service->Tag, trace);
  return TRUE;
}

// --- Files ----------------------------------------------------------------------------------------------------------

// A service names its image below the Windows directory, or with a bare name that stands for one of the drivers folder.
void FillImageFile(const char *image, VXR_FILEINFO *facts, const Caller &trace) {
  char directory[MAX_PATH] = "";
  SIZE_T used = platform::GetSystemWindowsDirectoryA(directory, sizeof directory);
  if (used == 0 || used + sizeof("\\") + sizeof(kDriversFolder) > sizeof directory) {
    trace.Failed("GetSystemWindowsDirectory", used == 0 ? "None" : "too long a path");
    return;
  }
  for (const char *folder : {"\\", kDriversFolder}) {
    std::memcpy(directory + used, folder, std::strlen(folder) + 1);
    used += std::strlen(folder);
    if (VXRDev_GetVXRFileInfo(image, directory, nullptr, facts)) return;
    trace.Failed("VXRDev_GetVXRFileInfo", image);
  }
}

}  // namespace

HeapText VXRDev_GetVXRDevDriver(DWORD deviceType, const char *szInstanceID, VXR_DEVDRV *pVXRDevDrv) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRDevDrv, "pVXRDevDrv") || !Given(szInstanceID, "szInstanceID")) return nullptr;
  trace.Check("checking %s...\n", szInstanceID);
  VXRDev_FixDevRegistry(deviceType, szInstanceID);
  GUID classGuid = {};
  VXRDev_GetGuidByDevType(deviceType, &classGuid);
  pVXRDevDrv->DevGuid = Store(classGuid);
  const DeviceSet set = PresentDevices(&classGuid);
  if (set == nullptr) {
    trace.Failed("SetupDiGetClassDevs()", "None");
    return nullptr;
  }
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof device;
  HeapText parent;
  for (DWORD i = 0; parent == nullptr && platform::SetupDiEnumDeviceInfo(set.get(), i, &device); ++i) {
    parent = RecordIfSought(set.get(), &device, deviceType, szInstanceID, pVXRDevDrv, trace);
  }
  return parent;
}

BOOL VXRDev_GetVXRDevDriverDetail(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, VXR_DEVDRV *pVXRDevDrv) {
  const CallTrace trace = TraceCall();
  if (hDevInfo == INVALID_HANDLE_VALUE) {
    trace.Error("hDevInfo is INVALID_HANDLE_VALUE\n");
    return FALSE;
  }
  if (!Given(pDevInfoData, "pDevInfoData") || !Given(pVXRDevDrv, "pVXRDevDrv")) return FALSE;
  const DriverInfo driver = ReadDriverInfo(hDevInfo, pDevInfoData, trace);
  if (driver == nullptr) return FALSE;
  const DriverInfoDetail detail = ReadDriverInfoDetail(hDevInfo, pDevInfoData, driver.get(), trace);
  if (detail == nullptr) return FALSE;
  if (!VXRDev_GetVXRFileInfo(detail->InfFileName, nullptr, detail->SectionName, &pVXRDevDrv->InfFile)) {
    trace.Failed("VXRDev_GetVXRFileInfo", detail->InfFileName);
  }
  if (!FillService(hDevInfo, pDevInfoData, &pVXRDevDrv->Service, trace)) return FALSE;
  FillImageFile(pVXRDevDrv->Service.Image, &pVXRDevDrv->ImgFile, trace);
  StoreText(pVXRDevDrv->Manufacturer, driver->MfgName);
  StoreText(pVXRDevDrv->Description, driver->Description);
  StoreText(pVXRDevDrv->ProviderName, driver->ProviderName);
  return TRUE;
}
