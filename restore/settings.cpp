#include "restore/settings.h"

#include <cstring>

#include "engine/base/parameters.h"
#include "engine/base/strings.h"
#include "log/heap.h"
#include "log/log.h"
#include "platform/scope_guard.h"
#include "registry/values.h"
#include "vxrcore/events.h"

VXR_BMRESTORE *gpVXRBMRestore = nullptr;

namespace {

DriverRules driverRules = DriverRules::kExact;
BootRecordKind bootRecord = BootRecordKind::kExact;

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

// A value of the job's key that opens another way of working: absent in most jobs.
struct Choice {
  const char *value;
  const char *usual, *other;
  void (*take)();
};

constexpr Choice kChoices[] = {
    {"DriverRules", "exact", "windows", [] { driverRules = DriverRules::kWindows; }},
    {"BootRecord", "exact", "auto", [] { bootRecord = BootRecordKind::kAutomatic; }},
};

void TakeChoice(const Choice &choice, const char *text, const Caller &trace) {
  if (VXREng_StrICmp(text, choice.other) == 0) return choice.take();
  if (VXREng_StrICmp(text, choice.usual) == 0) return;
  trace.Warning("%s=%s is none of %s and %s, %s is used\n", choice.value, text, choice.usual, choice.other,
                choice.usual);
  platform::ReportDecision(VXRMACHINE_JOB_VALUE_UNKNOWN, choice.value, text);
}

// Looks through the key's values for the choices. A job without any leaves no trace of the look: asking for each by its
// name would log that it is missing.
void ReadChoices(const char *jobKey, const Caller &trace) {
  constexpr DWORD kNameSize = 64, kTextSize = 64;
  HKEY key = nullptr;
  if (platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, jobKey, &key) != ERROR_SUCCESS) return;
  const ScopeGuard close([&] { platform::RegCloseKey(key); });
  for (DWORD index = 0;; ++index) {
    char name[kNameSize] = {};
    char text[kTextSize + 1] = {};
    DWORD length = kNameSize, type = 0, size = kTextSize;
    const LSTATUS status =
        platform::RegEnumValueA(key, index, name, &length, nullptr, &type, reinterpret_cast<BYTE *>(text), &size);
    if (status == ERROR_MORE_DATA) {  // which need not have given the name
      length = kNameSize;
      platform::RegEnumValueA(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    } else if (status != ERROR_SUCCESS) {
      return;
    }
    const bool readable = status == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ);
    for (const Choice &choice : kChoices) {
      if (VXREng_StrICmp(name, choice.value) == 0) TakeChoice(choice, readable ? text : "(no such text)", trace);
    }
  }
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
  if (!ReadSettings(jobKey, gpVXRBMRestore, trace)) return FALSE;
  ReadChoices(jobKey, trace);
  return TRUE;
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
  driverRules = DriverRules::kExact;
  bootRecord = BootRecordKind::kExact;
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
DriverRules VXRRlm_GetDriverRules() { return driverRules; }
BootRecordKind VXRRlm_GetBootRecord() { return bootRecord; }
char VXRRlm_GetRootDrive() { return gpVXRBMRestore == nullptr ? 'C' : gpVXRBMRestore->szRootPath[0]; }
