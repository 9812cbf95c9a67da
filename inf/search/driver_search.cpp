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
constexpr DWORD kUserCancelled = 15;
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
BOOL UseDirectory(const char *directory, VXR_DEVICE *device, const char *caller) {
  VXREng_StatusMsg(kProgress, "Looking for driver information in %s...\n", directory);
  ResetDriver(device->pVXRDriver, device->bInject);
  if (!VXRDev_GetDriverInfDir(directory, device->pVXRDriver, device)) return FALSE;
  if (!device->bInject) return TRUE;
  VXREng_StatusMsg(kProgress, "Updating registry for corresponding drivers...\n");
  if (VXRDev_PostGetDriver(device->pVXRDriver, device)) return TRUE;
  LogFailure("VXRDev_PostGetDriver", directory, caller);
  ReportRefusal(VXRMACHINE_REFUSED_NOT_REGISTERED, directory);
  return FALSE;
}

// Asks whether to stop searching. A user who cannot be asked has not said no: going back to the prompt then could go on
// for ever, so the search stops, too.
bool StopsSearching(const char *caller) {
  const int answer = platform::MessageBoxA(nullptr, "Are your sure you want to cancel searching driver files?",
                                           "Cancel Search?", MB_YESNO);
  if (answer == 0) LogFailure("MessageBox", "Cancel Search?", caller);
  if (answer != IDYES) return answer == 0;
  VXREng_StatusMsg(kUserCancelled, "User cancelled searching for driver files.");
  VXRDbg_Log(kError, "WARNG:%s:user cancelled on providing a valid inf dir!\n", caller);
  return true;
}

// One file of the directory, number `number` of its list, which goes on from it as `files`.
BOOL UseInfFile(const char *path, int32_t number, const char *directory, const char *files, VXR_DRIVER *driver,
                VXR_DEVICE *device, const char *caller) {
  if (!VXRDev_ValidateInfFile(path, &device->guDevice)) {
    VXRDbg_Log(kFlush, "FLUSH:%s:VXRDev_ValidateInfFile():failed for [%02d]:%s!\n", caller, number, path);
    return FALSE;
  }
  platform::ReportDecision(VXRMACHINE_INF_TRIED, path);
  if (!VXRDev_InitDriverInf(path, driver, device)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_InitDriverInf():failed for [%02d]:%s!\n", caller, number, path);
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:VXRDev_InitDriverInf() successful for [%02d]:%s!\n", caller, number, path);
  if (VXRDev_LocateDriverInfs(directory, files, driver, device)) {
    VXREng_StatusMsg(kProgress, "Successfully processed %s for %s...\n", path, device->szInstanceID);
    return TRUE;
  }
  VXRDbg_Log(kError, "ERROR:%s:VXRDev_LocateDriverInfs():failed for [%02d]:%s!\n", caller, number, path);
  ForgetInfFile(driver);
  return FALSE;
}

}  // namespace

BOOL VXRDev_GetDriverInfDirs(const char *szInfDirs, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDirs, "szInfDirs") || !Given(pVXRDevice, "pVXRDevice")) return FALSE;
  if (pVXRDevice->VXRDevType == VXR_DEVTYPE_DISKDRIVE) {
    VXRDbg_Log(kCheck, "CHECK:%s:DISKDRIVE, bypass adding driver...\n", __func__);
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
      LogFailure("VXRDev_ValidateDir", "None");
      break;
    }
    if (std::strcmp(directory.get(), listed) != 0) {  // the user's
      platform::ReportDecision(VXRMACHINE_DIRECTORY_SEARCHED, directory.get());
    }
    found = UseDirectory(directory.get(), pVXRDevice, __func__);
  }
  if (found) {
    VXREng_StatusMsg(kProgress, "Successful in %s for %s...\n",
                     pVXRDevice->bInject ? "driver files injection" : "driver files verification",
                     pVXRDevice->szInstanceID);
  }
  VXRDbg_Log(kCheck, "CHECK:%s:%s\n", __func__, found ? "TRUE" : "FALSE");
  return found;
}

BOOL VXRDev_ValidateDir(const char *szPattern, const char *szDirIn, char *szDirOut, DWORD size, DWORD *required) {
  const CallTrace trace = TraceCall();
  if (!Given(szDirOut, "szDirOut") || size == 0) return FALSE;
  const bool given = szDirIn != nullptr && *szDirIn != '\0';
  if (!PutText(szDirOut, size, "directory", {given ? szDirIn : VXREng_GetProductPath()})) return FALSE;
  const char *sought = szPattern != nullptr ? szPattern : kInfPattern;

  while (!VXREng_FileExistsInDir(szDirOut, szPattern)) {
    VXRDbg_Log(kCheck, "CHECK:%s:validating:%s for %s file...\n", __func__, szDirOut, sought);
    const UINT answer =
        platform::SetupPromptForDiskA(nullptr, "Varnelt VXR Driver Search", nullptr, szDirOut, sought, nullptr,
                                      IDF_OEMDISK | IDF_CHECKFIRST | IDF_NOCOMPRESSED, szDirOut, size, required);
    if (answer == DPROMPT_SUCCESS) {
      VXRDbg_Log(kCheck, "CHECK:%s:dir=:%s contains %s ...\n", __func__, szDirOut, sought);
      return TRUE;
    }
    if (answer != DPROMPT_CANCEL) {
      LogFailure("SetupPromptForDisk", "Inf file not found");
      return FALSE;
    }
    if (StopsSearching(__func__)) return FALSE;
  }
  return TRUE;
}

BOOL VXRDev_GetDriverInfDir(const char *szInfDir, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDir, "szInfDir") || !Given(pVXRDriver, "pVXRDriver") || !Given(pVXRDevice, "pVXRDevice")) {
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:dev=%p:drv=%p:dir=%s\n", __func__, pVXRDevice, pVXRDriver, szInfDir);
  const HeapText files = VXRDev_GetInfFilesList(szInfDir);
  if (files == nullptr) {
    LogFailure("VXRDev_GetInfFilesList", szInfDir);
    return FALSE;
  }
  BOOL found = FALSE;
  int32_t searched = 0;  // files that the search is through with
  for (const char *file = files.get(); *file != '\0'; file = NextText(file), ++searched) {
    const HeapText path = JoinPath(szInfDir, file, kPathSpare, "szInfFile");
    if (path == nullptr) break;
    found = UseInfFile(path.get(), searched + 1, szInfDir, file, pVXRDriver, pVXRDevice, __func__);
    if (found) break;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:Total %d inf files searched in %s...\n", __func__, searched, szInfDir);
  return found;
}
