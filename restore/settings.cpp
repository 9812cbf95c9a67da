#include "restore/settings.h"

#include "engine/base/parameters.h"
#include "engine/base/strings.h"
#include "log/heap.h"
#include "log/log.h"
#include "registry/values.h"

VXR_BMRESTORE *gpVXRBMRestore = nullptr;

namespace {

// A value of the job's key and the member that takes it, in the order of reading.
struct Setting {
  const char *value;
  char *VXR_BMRESTORE::*member;
  bool upperCase;
  const char *line;  // logs the text
};

constexpr Setting kSettings[] = {
    {"Disk", &VXR_BMRESTORE::szBootDisk, true, "szBootDisk=%s...\n"},
    {"InfDir", &VXR_BMRESTORE::szInfDir, false, "szInfDir=%s...\n"},
    {"BootPart", &VXR_BMRESTORE::szBootPart, true, "szBootPart=%s:\n"},
    {"RootPath", &VXR_BMRESTORE::szRootPath, false, "szRootPath=%s:\n"},
};

BOOL ReadSettings(const char *jobKey, VXR_BMRESTORE *settings, const Caller &trace) {
  for (const Setting &setting : kSettings) {
    DWORD type = 0, size = 0;
    HeapText text = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, jobKey, setting.value, &type, &size);
    if (text == nullptr) {
      trace.Failed("VXRReg_GetRegistryValue", setting.value);
      return FALSE;
    }
    if (setting.upperCase) VXREng_StrUpr(text.get());
    trace.Check(setting.line, text.get());
    settings->*setting.member = text.release();
  }
  return TRUE;
}

BOOL BuildBlock(void *header, const Caller &trace) {
  gpVXRBMRestore = AllocRecord<VXR_BMRESTORE>("gpVXRBMRestore", trace).release();
  if (gpVXRBMRestore == nullptr) return FALSE;
  trace.Check("PVXR_BMRESTORE allocated at %p\n", gpVXRBMRestore);
  gpVXRBMRestore->pVXRBMExt = header;
  const char *jobKey = VXREng_GetJobKey();
  if (jobKey == nullptr) {
    trace.Failed("VXREng_GetJobKey", "Null");
    return FALSE;
  }
  trace.Check("szJobKey = \n");
  return ReadSettings(jobKey, gpVXRBMRestore, trace);
}

}  // namespace

BOOL VXRRlm_Initialize([[maybe_unused]] DWORD job, void *header) {
  const CallTrace trace = TraceCall();
  VXRRlm_Cleanup();
  if (!BuildBlock(header, trace)) {
    VXRRlm_Cleanup();
    return FALSE;
  }
  trace.Check("gpVXRBMRestore initailzed ok at %p\n", gpVXRBMRestore);
  return TRUE;
}

BOOL VXRRlm_Cleanup() {
  const CallTrace trace = TraceCall();
  VXR_BMRESTORE *settings = gpVXRBMRestore;
  if (settings == nullptr) return TRUE;
  FreeLogged(settings->szBootPart, "freeing szBootPart=%s\n");
  FreeLogged(settings->szRootPath, "freeing szRootPath=%s\n");
  FreeLogged(settings->szInfDir, "freeing szInfDir=%s\n");
  FreeMember(settings->szBootDisk);
  if (settings->pVXRBMExt != nullptr) {
    trace.Info("pVXRBMExt =%p, nullify it\n", settings->pVXRBMExt);
    settings->pVXRBMExt = nullptr;
  }
  trace.Check("freeing gpVXRBMRestore=%p\n", settings);
  FreeMember(gpVXRBMRestore);
  return TRUE;
}

const char *VXRRlm_GetBootDisk() { return gpVXRBMRestore == nullptr ? nullptr : gpVXRBMRestore->szBootDisk; }
const char *VXRRlm_GetBootPart() { return gpVXRBMRestore == nullptr ? nullptr : gpVXRBMRestore->szBootPart; }
const char *VXRRlm_GetRootPath() { return gpVXRBMRestore == nullptr ? nullptr : gpVXRBMRestore->szRootPath; }
const char *VXRRlm_GetInfDir() { return gpVXRBMRestore == nullptr ? nullptr : gpVXRBMRestore->szInfDir; }
char VXRRlm_GetRootDrive() { return gpVXRBMRestore == nullptr ? 'C' : gpVXRBMRestore->szRootPath[0]; }
