#include "inf/search/driver_search.h"

#include "device/records.h"
#include "engine/base/decisions.h"
#include "engine/base/files.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/critical_device.h"
#include "inf/walks.h"
#include "log/log.h"
#include "vxrcore/bmext.h"

namespace {

constexpr char kInfPattern[] = "*.inf";
constexpr SIZE_T kPathSpare = 8;  // bytes of a file's path beyond the backslash and the terminator

// An INF file is given up: what the record took from it goes, and with the id list the matched id that may lie in it.
void ForgetInfFile(VXR_DRIVER *driver) {
  FreeMember(driver->pDrvInfoData);
  FreeMember(driver->pDrvInfoDetailData);
  driver->szMatchedID = nullptr;
  driver->pVXRDevice = nullptr;
}

void ResetDriver(VXR_DRIVER *driver, BOOL bInject) {
  ForgetInfFile(driver);
  FreeMember(driver->szDriver);
  FreeMember(driver->szService);
  *driver = {};
  driver->bInject = bInject;
}

// Searches a validated directory and, in injection mode, registers the driver that it has.
BOOL UseDirectory(const char *directory, VXR_DEVICE *device, const Caller &trace) {
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Looking for driver information in %s...\n", directory);
  ResetDriver(device->pVXRDriver, device->bInject);
  if (!VXRDev_GetDriverInfDir(directory, device->pVXRDriver, device)) return FALSE;
  if (!device->bInject) return TRUE;
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Updating registry for corresponding drivers...\n");
  if (VXRDev_PostGetDriver(device->pVXRDriver, device)) return TRUE;
  trace.Failed("VXRDev_PostGetDriver", directory);
  ReportRefusal(VXRMACHINE_REFUSED_NOT_REGISTERED, directory);
  return FALSE;
}

// Asks whether to stop searching. A user who cannot be asked has not said no: going back to the prompt then could go on
// for ever, so the search stops, too.
bool StopsSearching(const Caller &trace) {
  const int answer = platform::MessageBoxA(nullptr, "Are your sure you want to cancel searching driver files?",
                                           "Cancel Search?", MB_YESNO);
  if (answer == 0) trace.Failed("MessageBox", "Cancel Search?");
  if (answer != IDYES) return answer == 0;
  VXREng_StatusMsg(VXR_RESULT_CANCELLED, "User cancelled searching for driver files.");
  trace.Log(kError, "WARNG", "user cancelled on providing a valid inf dir!\n");
  return true;
}

// One file of the directory, number `number` of its list, which goes on from it as `files`.
BOOL UseInfFile(const char *path, int32_t number, const char *directory, const char *files, VXR_DRIVER *driver,
                VXR_DEVICE *device, const Caller &trace) {
  if (!VXRDev_ValidateInfFile(path, &device->guDevice)) {
    trace.Flush("VXRDev_ValidateInfFile():failed for [%02d]:%s!\n", number, path);
    return FALSE;
  }
  platform::ReportDecision(VXRMACHINE_INF_TRIED, path);
  if (!VXRDev_InitDriverInf(path, driver, device)) {
    trace.Error("VXRDev_InitDriverInf():failed for [%02d]:%s!\n", number, path);
    return FALSE;
  }
  trace.Check("VXRDev_InitDriverInf() successful for [%02d]:%s!\n", number, path);
  if (VXRDev_LocateDriverInfs(directory, files, driver, device)) {
    VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Successfully processed %s for %s...\n", path, device->szInstanceID);
    platform::ReportDecision(VXRMACHINE_INF_PROCESSED, path, device->szInstanceID);
    return TRUE;
  }
  trace.Error("VXRDev_LocateDriverInfs():failed for [%02d]:%s!\n", number, path);
  ForgetInfFile(driver);
  return FALSE;
}

}  // namespace

BOOL VXRDev_GetDriverInfDirs(const char *szInfDirs, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDirs, "szInfDirs") || !Given(pVXRDevice, "pVXRDevice")) return FALSE;
  if (pVXRDevice->VXRDevType == VXR_DEVTYPE_DISKDRIVE) {
    trace.Check("DISKDRIVE, bypass adding driver...\n");
    return TRUE;
  }
  if (pVXRDevice->pVXRDriver != nullptr) VXRDev_FreeDriver(pVXRDevice->pVXRDriver);
  pVXRDevice->pVXRDriver = AllocRecord<VXR_DRIVER>("pVXRDriver").release();
  if (pVXRDevice->pVXRDriver == nullptr) return FALSE;
  const HeapText directory = AllocText(MAX_PATH, "szInfDir");
  if (directory == nullptr) return FALSE;

  BOOL found = FALSE;
  for (const char *listed = szInfDirs; *listed != '\0' && !found; listed = NextText(listed)) {
    DWORD required = 0;
    platform::ReportDecision(VXRMACHINE_DIRECTORY_SEARCHED, listed);
    if (!VXRDev_ValidateDir(kInfPattern, listed, directory.get(), MAX_PATH, &required)) {
      trace.Failed("VXRDev_ValidateDir", "None");
      break;
    }
    if (std::strcmp(directory.get(), listed) != 0) {  // the user's
      platform::ReportDecision(VXRMACHINE_DIRECTORY_SEARCHED, directory.get());
    }
    found = UseDirectory(directory.get(), pVXRDevice, trace);
  }
  if (found) {
    platform::ReportDecision(VXRMACHINE_DEVICE_SET_UP, pVXRDevice->szInstanceID);
    VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Successful in %s for %s...\n",
                     pVXRDevice->bInject ? "driver files injection" : "driver files verification",
                     pVXRDevice->szInstanceID);
  }
  trace.Check("%s\n", found ? "TRUE" : "FALSE");
  return found;
}

BOOL VXRDev_ValidateDir(const char *szPattern, const char *szDirIn, char *szDirOut, DWORD size, DWORD *required) {
  const CallTrace trace = TraceCall();
  if (!Given(szDirOut, "szDirOut") || size == 0) return FALSE;
  const bool given = szDirIn != nullptr && *szDirIn != '\0';
  if (!PutText(szDirOut, size, "directory", {given ? szDirIn : VXREng_GetProductPath()})) return FALSE;
  const char *sought = szPattern != nullptr ? szPattern : kInfPattern;

  while (!VXREng_FileExistsInDir(szDirOut, szPattern)) {
    trace.Check("validating:%s for %s file...\n", szDirOut, sought);
    const UINT answer =
        platform::SetupPromptForDiskA(nullptr, "Varnelt VXR Driver Search", nullptr, szDirOut, sought, nullptr,
                                      IDF_OEMDISK | IDF_CHECKFIRST | IDF_NOCOMPRESSED, szDirOut, size, required);
    if (answer == DPROMPT_SUCCESS) {
      trace.Check("dir=:%s contains %s ...\n", szDirOut, sought);
      return TRUE;
    }
    if (answer != DPROMPT_CANCEL) {
      trace.Failed("SetupPromptForDisk", "Inf file not found");
      return FALSE;
    }
    if (StopsSearching(trace)) return FALSE;
  }
  return TRUE;
}

BOOL VXRDev_GetDriverInfDir(const char *szInfDir, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDir, "szInfDir") || !Given(pVXRDriver, "pVXRDriver") || !Given(pVXRDevice, "pVXRDevice")) {
    return FALSE;
  }
  trace.Check("dev=%p:drv=%p:dir=%s\n", pVXRDevice, pVXRDriver, szInfDir);
  const HeapText files = VXRDev_GetInfFilesList(szInfDir);
  if (files == nullptr) {
    trace.Failed("VXRDev_GetInfFilesList", szInfDir);
    return FALSE;
  }
  BOOL found = FALSE;
  int32_t searched = 0;  // files that the search is through with
  for (const char *file = files.get(); *file != '\0'; file = NextText(file), ++searched) {
    const HeapText path = JoinPath(szInfDir, file, kPathSpare, "szInfFile");
    if (path == nullptr) break;
    found = UseInfFile(path.get(), searched + 1, szInfDir, file, pVXRDriver, pVXRDevice, trace);
    if (found) break;
  }
  trace.Check("Total %d inf files searched in %s...\n", searched, szInfDir);
  return found;
}
