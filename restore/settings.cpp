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

RestoreChoices choices;

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

// A value that only some jobs have.
struct JobValue {
  std::string name;
  DWORD type = REG_NONE;
  std::string data;  // two zero bytes stand behind it
  DWORD size = 0;    // bytes of the data
};

// A value that is a text, one of two.
struct Choice {
  const char *value;
  const char *usual, *other;
  void (*take)();
};

constexpr Choice kChoices[] = {
    {"DriverRules", "exact", "windows", [] { choices.rules = DriverRules::kWindows; }},
    {"BootRecord", "exact", "auto", [] { choices.record = BootRecordKind::kAutomatic; }},
};

struct Number {
  const char *value;
  std::optional<DWORD> RestoreChoices::*member;
};

constexpr Number kNumbers[] = {
    {"OSBuild", &RestoreChoices::osBuild},
    {"OSProduct", &RestoreChoices::osProduct},
    {"OSSuite", &RestoreChoices::osSuite},
};

struct List {
  const char *value;
  std::string RestoreChoices::*member;
};

constexpr List kLists[] = {
    {"MoreInfDirs", &RestoreChoices::infDirs},
    {"MoreDisks", &RestoreChoices::disks},
};

void TakeChoice(const Choice &choice, const JobValue &value, const Caller &trace) {
  constexpr DWORD kLongest = 64;
  const bool readable = (value.type == REG_SZ || value.type == REG_EXPAND_SZ) && value.size <= kLongest;
  const char *text = readable ? value.data.c_str() : "(no such text)";
  if (VXREng_StrICmp(text, choice.other) == 0) return choice.take();
  if (VXREng_StrICmp(text, choice.usual) == 0) return;
  trace.Warning("%s=%s is none of %s and %s, %s is used\n", choice.value, text, choice.usual, choice.other,
                choice.usual);
  platform::ReportDecision(VXRMACHINE_JOB_VALUE_UNKNOWN, choice.value, text);
}

void PassOver(const char *value, const char *wanted, const Caller &trace) {
  trace.Warning("%s is no %s, it is passed over\n", value, wanted);
  platform::ReportDecision(VXRMACHINE_JOB_VALUE_UNKNOWN, value);
}

void TakeNumber(const Number &number, const JobValue &value, const Caller &trace) {
  DWORD taken = 0;
  if (value.type != REG_DWORD || value.size != sizeof taken) return PassOver(number.value, "REG_DWORD", trace);
  std::memcpy(&taken, value.data.data(), sizeof taken);
  choices.*number.member = taken;
}

void TakeList(const List &list, const JobValue &value, const Caller &trace) {
  if (value.type != REG_MULTI_SZ) return PassOver(list.value, "REG_MULTI_SZ", trace);
  choices.*list.member = value.data;
}

void TakeValue(const JobValue &value, const Caller &trace) {
  const auto is = [&value](const char *name) { return VXREng_StrICmp(value.name.c_str(), name) == 0; };
  for (const Choice &choice : kChoices) {
    if (is(choice.value)) TakeChoice(choice, value, trace);
  }
  for (const Number &number : kNumbers) {
    if (is(number.value)) TakeNumber(number, value, trace);
  }
  for (const List &list : kLists) {
    if (is(list.value)) TakeList(list, value, trace);
  }
}

LSTATUS ReadJobValue(HKEY key, DWORD index, DWORD size, JobValue *value) {
  constexpr DWORD kNameSize = 64;
  char name[kNameSize] = {};
  DWORD length = kNameSize;
  value->size = size;
  value->data.assign(size + 2, '\0');
  const LSTATUS status = platform::RegEnumValueA(key, index, name, &length, nullptr, &value->type,
                                                 reinterpret_cast<BYTE *>(value->data.data()), &value->size);
  value->name = name;
  return status;
}

// Looks through the key's values for those that only some jobs have. A job without any leaves no trace of the look:
// asking for each by its name would log that it is missing.
void ReadChoices(const char *jobKey, const Caller &trace) {
  constexpr DWORD kUsualSize = 64;
  HKEY key = nullptr;
  if (platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, jobKey, &key) != ERROR_SUCCESS) return;
  const ScopeGuard close([&] { platform::RegCloseKey(key); });
  for (DWORD index = 0;; ++index) {
    JobValue value;
    LSTATUS status = ReadJobValue(key, index, kUsualSize, &value);
    if (status == ERROR_MORE_DATA) status = ReadJobValue(key, index, value.size, &value);
    // A name that is too long is none of ours.
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return;
    if (status == ERROR_SUCCESS) TakeValue(value, trace);
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
  choices = {};
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
const RestoreChoices &VXRRlm_GetChoices() { return choices; }
char VXRRlm_GetRootDrive() { return gpVXRBMRestore == nullptr ? 'C' : gpVXRBMRestore->szRootPath[0]; }
