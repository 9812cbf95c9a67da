// The restore run: brings up what the driver work needs, does it, and releases everything, whatever fails on the way.

#include "bmext/load.h"
#include "bmext/target_os.h"
#include "device/records.h"
#include "device/scan/disk_scan.h"
#include "engine/base/decisions.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "inf/search/driver_search.h"
#include "log/log.h"
#include "package/device_driver.h"
#include "registry/mount/hive.h"
#include "registry/values.h"
#include "restore/settings.h"
#include "volume/volume.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr DWORD kReplaceWindowText = 2;
constexpr DWORD kSystemHive = 0;

// `done`; when it is FALSE, logs the call and shows the line, whose code becomes the run's result.
BOOL Succeeded(BOOL done, const char *call, DWORD code, const char *line, const Caller &trace) {
  if (done) return TRUE;
  trace.Failed(call, "None");
  VXREng_StatusMsg(code, line);
  return FALSE;
}

// Everything before the driver work, each step needing the ones before it; FALSE at the first that fails.
BOOL Prepare(DWORD job, DWORD inject, void *header, const Caller &trace) {
  if (!Succeeded(VXREng_Initialize(inject, job), "VXREng_Initialize", VXR_RESULT_NO_ENGINE,
                 "Failed to initialize Vexmorph engine!", trace)) {
    return FALSE;
  }
  if (!Succeeded(VXRExt_Initialize(job, header), "VXRExt_Initialize", VXR_RESULT_NO_EXTENSION,
                 "Failed to initialize the Bare Metal extension information!", trace)) {
    return FALSE;
  }
  if (!Succeeded(VXRRlm_Initialize(job, header), "VXRRlm_Initialize", VXR_RESULT_NO_SETTINGS,
                 "Failed to initialize the Bare Metal restore information!", trace)) {
    return FALSE;
  }
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Looking for the restored system volume...\n");
  if (!Succeeded(VXRVol_LocateVolume(job, gpVXRParaBlock), "VXRVol_LocateVolume", VXR_RESULT_NO_VOLUME,
                 "Failed to locate the restored system volume!\n", trace)) {
    return FALSE;
  }
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Loading the original registry hive from the restored volume...\n");
  return Succeeded(VXRReg_LoadHive(kSystemHive, gpVXRParaBlock), "VXRReg_LoadHive", VXR_RESULT_NO_HIVE,
                   "Failed to load the original registry hive file failed!\n", trace);
}

HeapText ReadJobValue(const char *value, DWORD *size, LSTATUS *status = nullptr) {
  DWORD type = 0;
  return VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, gpVXRParaBlock->szJobKey, value, &type, size, status);
}

// The job's InfDir, which names an INF file when the job names an id.
HeapText ReadNamedInf() {
  DWORD size = 0;
  return ReadJobValue("InfDir", &size);
}

// The directory of that file, cut from a reading of its own: the log shows both.
HeapText ReadNamedInfDirectory() {
  HeapText path = ReadNamedInf();
  char *fileName = path == nullptr ? nullptr : LastBackslash(path.get());
  if (fileName != nullptr) *fileName = '\0';
  return path;
}

// Looks for an id in the INF file by the narrow reading. Copies and writes nothing: the device's bInject stays FALSE.
BOOL LocateNamedId(const char *hardwareId, const char *infDir, const char *infFile, const Caller &trace) {
  VXR_DEVICE *device = AllocRecord<VXR_DEVICE>("pVXRDevice", trace).release();
  VXR_DRIVER *driver = AllocRecord<VXR_DRIVER>("pVXRDriver", trace).release();
  BOOL found = FALSE;
  if (device != nullptr && driver != nullptr) {
    device->szTargetOS = VXRExt_GetTargetOS().release();
    ReportTexts(VXRMACHINE_DEVICE_TARGET, device->szTargetOS);
    driver->pVXRDevice = device;
    // Says itself what is missing: a directory, a file, decorations.
    found = VXRDev_LocateDriverInf(INVALID_HANDLE_VALUE, infDir, infFile, hardwareId, driver);
  }
  VXRDev_FreeDriver(driver);
  VXRDev_FreeDevice(device);
  return found;
}

// Looks for the driver of one id in the one INF file that the job names, in either mode.
BOOL CheckNamedId(const char *hardwareId, const Caller &trace) {
  const HeapText infFile = ReadNamedInf();
  const HeapText infDir = ReadNamedInfDirectory();
  trace.Check("checking HardwareID %s in %s...\n", hardwareId, infDir.get());

  platform::ReportDecision(VXRMACHINE_DEVICE_CHECKED, hardwareId, nullptr, TRUE);
  platform::ReportDecision(VXRMACHINE_DEVICE_ID, hardwareId);
  const BOOL found = VXRRlm_GetChoices().rules == DriverRules::kWindows
                         ? infFile != nullptr && package::HasDriverFor(infFile.get(), hardwareId)
                         : LocateNamedId(hardwareId, infDir.get(), infFile.get(), trace);
  if (!found) platform::ReportDecision(VXRMACHINE_DEVICE_FAILED, hardwareId);
  return found;
}

void DriverWork(const Caller &trace) {
  DWORD size = 0;
  LSTATUS status = ERROR_SUCCESS;
  // Kept until the check is over: its driver record borrows the id.
  const HeapText hardwareId = ReadJobValue("HardwareID", &size, &status);
  if (hardwareId != nullptr && size > 0) {
    if (!CheckNamedId(hardwareId.get(), trace)) dwError = VXR_RESULT_NO_NAMED_DRIVER;
    return;
  }
  // A job that may name an id is not taken for one that names none: it would copy and write where only a check was
  // asked for.
  if (hardwareId == nullptr && status != static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) {
    platform::ReportDecision(VXRMACHINE_NAMED_ID_UNREAD, nullptr, nullptr, static_cast<DWORD>(status));
    dwError = VXR_RESULT_NO_NAMED_DRIVER;
    return;
  }
  trace.Check("building vxr devices...\n");
  // Its failures reach the result through their status lines.
  VXRDev_ScanDiskDevices(gpVXRParaBlock);
}

void UnloadHive(const Caller &trace) {
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Unloading the original registry hive...\n");
  const char *systemPath = gpVXRParaBlock->szSystemPath;
  if (VXRReg_UnloadHive(systemPath)) return;
  trace.Failed("VXRReg_UnloadHive", systemPath);
  platform::ReportDecision(VXRMACHINE_HIVE_NOT_UNLOADED, systemPath, nullptr, platform::GetLastError());
}

}  // namespace

extern "C" uint32_t VXREng_RunVXR(uint32_t job, uint32_t inject, void *header, void *window) {
  const CallTrace trace = TraceCall();
  const char *mode = inject != 0 ? "driver files injection" : "driver files verification";
  VXRDbg_Log(kCheck, "*****\nCHECK:%s:job=%u:%s:_START_\n*****\n", trace.name, job, mode);
  hStatusWnd = static_cast<HWND>(window);
  dwError = 0;
  dwWndFlags = kReplaceWindowText;

  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Initializing Vexmorph engine for %s...\n", mode);
  if (Prepare(job, inject, header, trace)) {
    DriverWork(trace);
    UnloadHive(trace);
  }

  VXRDbg_Log(0, "CHECK:VXR [%s]:error= %u.\n", mode, dwError);
  VXREng_StatusMsg(VXR_STATUS_PROGRESS,
                   dwError == 0 ? "Successfully finished Vexmorph for %s!\n" : "Failed to perform Vexmorph for %s!\n",
                   mode);
  VXRRlm_Cleanup();
  VXRExt_Cleanup();
  VXREng_Cleanup();
  VXRDbg_Log(kCheck, "*****\nCHECK:%s:job=%u:%s:_FINISH_\n*****\n", trace.name, job, mode);
  return dwError;
}
