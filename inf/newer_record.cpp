#include "inf/newer_record.h"

#include <cstring>

#include "bmext/load.h"
#include "engine/base/parameters.h"
#include "engine/base/strings.h"
#include "engine/paths/path_catalogue.h"
#include "log/log.h"
#include "registry/boot_record.h"
#include "restore/settings.h"

namespace {

constexpr DWORD kFirstWithScope = 10;  // major version from which packages have a configuration scope

bool DeviceHas(const VXR_DEVICE *device, const char *id) {
  return device != nullptr &&
         (VXREng_FindMatch(id, device->szHardwareID) != 0 || VXREng_FindMatch(id, device->szCompatibleIDs) != 0);
}

// The ids of the model line that the device has; else the one that matched.
std::vector<BootRecordId> RecordedIds(const VXR_DRIVER &driver) {
  std::vector<BootRecordId> ids;
  const SP_DRVINFO_DETAIL_DATA_A &detail = *driver.pDrvInfoDetailData;
  // The hardware id, whose place is kept when the line has none, then the compatible ids.
  if (DeviceHas(driver.pVXRDevice, detail.HardwareID)) ids.push_back({detail.HardwareID, 0});
  const char *compatible = detail.CompatIDsLength != 0 ? detail.HardwareID + detail.CompatIDsOffset : "";
  for (std::size_t position = 1; *compatible != '\0'; ++position) {
    if (DeviceHas(driver.pVXRDevice, compatible)) ids.push_back({compatible, position});
    compatible += std::strlen(compatible) + 1;
  }
  if (ids.empty() && driver.szMatchedID != nullptr) ids.push_back({driver.szMatchedID, 0});
  return ids;
}

BootRecord MakeRecord(const GUID &classGuid, const char *service, const VXR_DRIVER &driver) {
  BootRecord record;
  record.service = service;
  record.classGuid = classGuid;
  record.ids = RecordedIds(driver);
  if (const VXR_SYSOSINFO *os = VXRExt_GetSysOsInfo(); os != nullptr) {
    record.architecture = static_cast<WORD>(VxrGet32(os->ProcessorArchitecture));
    record.configScope = VxrGet32(os->MajorVersion) >= kFirstWithScope;
  }
  const char *path = driver.pDrvInfoDetailData->InfFileName;
  const char *name = LastBackslash(path);
  record.infName = name != nullptr ? name + 1 : path;
  if (name != nullptr) record.infPath.assign(path, name);
  record.section = driver.pDrvInfoDetailData->SectionName;
  if (const SP_DRVINFO_DATA_A *info = driver.pDrvInfoData; info != nullptr) {
    record.provider = info->ProviderName;
    record.date = static_cast<DWORD64>(info->DriverDate.dwHighDateTime) << 32 | info->DriverDate.dwLowDateTime;
    record.version = info->DriverVersion;
  }
  return record;
}

}  // namespace

bool WantsNewerRecord() {
  if (VXRRlm_GetChoices().record != BootRecordKind::kAutomatic) return false;
  // A hive that does not say is left to the newer record, which then fails and writes nothing.
  const RegistryEdits edits;
  return HasDriverDatabase(edits) || !edits.unread.empty();
}

BOOL VXRDev_CreateNewerRecord(const GUID *classGuid, const char *szService, const VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRDriver->pDrvInfoDetailData, "pVXRDriver->pDrvInfoDetailData")) return FALSE;
  const HeapText windowsInf = VXREng_GetStringAs(VXR_DIR_WININF, nullptr);
  if (windowsInf == nullptr) return FALSE;
  const std::string controlSet = ControlSetName(gpVXRParaBlock->dwCtrlSetIndex);
  RegistryEdits edits;
  std::string publishedName, failed;
  if (!PlanBootRecord(MakeRecord(*classGuid, szService, *pVXRDriver), controlSet, windowsInf.get(), &edits,
                      &publishedName, &failed)) {
    trace.Error("the record of %s was not written:%s\n", szService, failed.c_str());
    return FALSE;
  }
  PlanServiceStart(szService, &edits);
  bool restored = true;
  if (!ApplyEdits(edits, &failed, &restored)) {
    trace.Error("the record of %s was not written:%s\n", szService, failed.c_str());
    return FALSE;
  }
  trace.Check("%s:recorded as %s\n", szService, publishedName.c_str());
  return TRUE;
}
