// The search for an id of the device: candidates, INF files, manufacturers, decorations.
#include "device/records.h"
#include "engine/base/decisions.h"
#include "inf/checks.h"
#include "inf/install_section.h"
#include "inf/search/driver_search.h"
#include "inf/walks.h"
#include "log/log.h"

namespace {

// One manufacturer line: its model section under each decoration of the driver's device, then under none. The target
// systems that follow on the line are not read; which decorations count is the restored system's matter alone.
BOOL UseManufacturer(HINF hInf, INFCONTEXT *line, const char *szInfDir, const char *szHardwareID, VXR_DRIVER *driver,
                     const Caller &trace) {
  const HeapText manufacturer = TextField(hInf, line, 0);
  if (manufacturer == nullptr) return FALSE;
  trace.Flush("checking manufacturer %s...\n", manufacturer.get());
  const HeapText models = TextField(hInf, line, 1);
  if (models == nullptr) return FALSE;
  const char *next = driver->pVXRDevice->szTargetOS;
  while (next != nullptr) {
    // The empty text that closes the list stands for the walk without a decoration.
    const char *decoration = *next != '\0' ? next : nullptr;
    if (VXRDev_ProcessModSect(hInf, szInfDir, models.get(), decoration, szHardwareID, driver)) {
      trace.Check("found match:sec=%s:arch=%s...\n", models.get(), DecorationName(decoration));
      return TRUE;
    }
    next = decoration != nullptr ? NextText(decoration) : nullptr;
  }
  trace.Info("not found match in section %s...\n", models.get());
  return FALSE;
}

}  // namespace

BOOL VXRDev_LocateDriverInfs(const char *szInfDir, const char *szInfFiles, VXR_DRIVER *pVXRDriver,
                             VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfFiles, "szInfFiles") || !Given(pVXRDevice, "pVXRDevice") || !Given(pVXRDriver, "pVXRDriver") ||
      !Given(pVXRDriver->pDrvInfoData, "pVXRDriver->pDrvInfoData") ||
      !Given(pVXRDriver->pDrvInfoDetailData, "pVXRDriver->pDrvInfoDData") ||
      !Given(pVXRDriver->pVXRDevice, "pVXRDriver->pVXRDevice")) {
    return FALSE;
  }
  trace.Check("instid=%s:infdir=%s\n", pVXRDevice->szInstanceID, szInfDir);

  const SP_DRVINFO_DETAIL_DATA_A *detail = pVXRDriver->pDrvInfoDetailData;
  const char *ids = detail->HardwareID;
  const struct {
    const char *name;
    const char *ids;
  } candidates[] = {
      {"drvinfo hardware", ids},
      {"drvinfo compatible", detail->CompatIDsLength != 0 ? ids + detail->CompatIDsOffset : nullptr},
      {"devinfo hardware", pVXRDriver->pVXRDevice->szHardwareID},
      {"devinfo compatible", pVXRDriver->pVXRDevice->szCompatibleIDs},
  };
  BOOL found = FALSE;
  for (const auto &list : candidates) {
    int32_t number = 0;
    for (const char *id = list.ids; id != nullptr && *id != '\0' && !found; id = NextText(id)) {
      trace.Check("check %s id=%02d:%s\n", list.name, ++number, id);
      found = VXRDev_LocateDriverByID(id, szInfDir, szInfFiles, pVXRDriver, pVXRDevice);
    }
  }
  trace.Info("%s driver for %s\n", found ? "successfully located" : "failed to locate", pVXRDevice->szInstanceID);
  return found;
}

BOOL VXRDev_LocateDriverByID(const char *szHardwareID, const char *szInfDir, const char *szInfFiles,
                             VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRDriver, "pVXRDriver") || !Given(pVXRDevice, "pVXRDevice") || !Given(szInfDir, "szInfDir") ||
      !Given(szInfFiles, "szInfFiles") || !Given(szHardwareID, "szHardwareID")) {
    return FALSE;
  }
  const HeapText guid = VXRDev_GetGuidString(&pVXRDevice->guDevice, TRUE);
  trace.Info("check for hwid=%s:devguid=%s\n", szHardwareID, guid.get());
  const HeapText path = AllocText(MAX_PATH, "szInfFile");
  if (path == nullptr) return FALSE;
  for (const char *file = szInfFiles; *file != '\0'; file = NextText(file)) {
    if (!PutText(path.get(), MAX_PATH, "szInfFile", {szInfDir, "\\", file})) continue;
    if (VXRDev_ValidateInfFile(path.get(), &pVXRDevice->guDevice) &&
        VXRDev_LocateDriverInf(INVALID_HANDLE_VALUE, szInfDir, path.get(), szHardwareID, pVXRDriver)) {
      return TRUE;
    }
  }
  return FALSE;
}

BOOL VXRDev_LocateDriverInf(HINF hInf, const char *szInfDir, const char *szInfFile, const char *szHardwareID,
                            VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDir, "szInfDir") || !Given(szInfFile, "szInfFile") || !Given(szHardwareID, "szHardwareID")) {
    return FALSE;
  }
  platform::ReportDecision(VXRMACHINE_INF_TRIED, szInfFile, szHardwareID);
  if (!DecorationsGiven(pVXRDriver)) {
    ReportRefusal(VXRMACHINE_REFUSED_RESTORED_SYSTEM);
    return FALSE;
  }
  if (*pVXRDriver->pVXRDevice->szTargetOS == '\0') {
    trace.Failed("VXREng_GetSubStringCount:szTargetOS", szInfFile);
    return FALSE;
  }
  InfFile own;
  if (hInf == INVALID_HANDLE_VALUE) {
    own = OpenInfFile(szInfFile);
    if (own == nullptr) {
      ReportRefusal(VXRMACHINE_REFUSED_UNREADABLE);
      trace.Failed("SetupOpenInfFile", szInfFile);
      return FALSE;
    }
    hInf = own.get();
  }
  trace.Log(kCheck, "FLUSH", "InfFile=%s\n", szInfFile);
  INFCONTEXT line = {};
  for (BOOL more = FirstLine(hInf, "Manufacturer", &line); more; more = NextLine(&line)) {
    if (UseManufacturer(hInf, &line, szInfDir, szHardwareID, pVXRDriver, trace)) return TRUE;
  }
  ReportRefusal(VXRMACHINE_REFUSED_RESTORED_SYSTEM);
  return FALSE;
}
