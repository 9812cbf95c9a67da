// The service that an install section adds.
#include <cstring>

#include "engine/base/decisions.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/install_section.h"
#include "inf/walks.h"
#include "log/log.h"
#include "registry/values.h"

namespace {

constexpr DWORD kServiceNameField = 1;  // of an AddService line
constexpr DWORD kServiceInstallField = 3;

// The keys of a service-install section whose value goes below the service's key.
struct ServiceValue {
  const char *keyword;
  const char *name;
  DWORD fieldType;
  bool isImagePath;
};
constexpr ServiceValue kServiceValues[] = {
    {"DisplayName", "DisplayName", VXRINF_TYPE_SZ, false}, {"ServiceType", "Type", VXRINF_TYPE_INT, false},
    {"StartType", "Start", VXRINF_TYPE_INT, false},        {"ErrorControl", "ErrorControl", VXRINF_TYPE_INT, false},
    {"ServiceBinary", "ImagePath", VXRINF_TYPE_SZ, true},  {"LoadOrderGroup", "Group", VXRINF_TYPE_SZ, false},
};

// An AddService line: stores its service name in the driver and returns the name of its service-install section. Null,
// without a service name stored, when it lacks either.
HeapText ReadAddService(HINF hInf, INFCONTEXT *line, const char *key, VXR_DRIVER *driver, const Caller &trace) {
  FreeMember(driver->szService);
  driver->szService = FilledField(hInf, line, kServiceNameField).release();
  if (driver->szService == nullptr) {
    trace.Error("field=%s:missing service name!!!\n", key);
    return nullptr;
  }
  trace.Check("Service=%s...\n", driver->szService);
  HeapText section = FilledField(hInf, line, kServiceInstallField);
  if (section == nullptr) {
    trace.Error("field=%s:missing service install section name!!!\n", key);
    FreeMember(driver->szService);
  }
  return section;
}

void LogOtherServiceKey(const char *key, const Caller &trace) {
  trace.Fixme("bypassing field=%s...\n", key);
  if (!BeginsWith(key, "DelService") && !BeginsWith(key, "Include") && !BeginsWith(key, "Needs")) {
    trace.Error("unknown field=%s:corrupted inf file!\n", key);
  }
}

const ServiceValue *FindServiceValue(const char *key) {
  for (const ServiceValue &value : kServiceValues) {
    if (BeginsWith(key, value.keyword)) return &value;
  }
  return nullptr;
}

BOOL WriteServiceValue(HINF hInf, INFCONTEXT *line, const ServiceValue &value, const char *szService,
                       const Caller &trace) {
  DWORD size = 0;
  HeapText data = VXRDev_GetInfLineField(hInf, 1, line, &size, value.fieldType);
  if (data == nullptr) return FALSE;
  DWORD type = REG_SZ;
  if (value.fieldType == VXRINF_TYPE_INT) {
    DWORD number = 0;
    std::memcpy(&number, data.get(), sizeof(number));
    trace.Check("%s=0x%08x:size=%u bytes\n", value.keyword, number, size);
    type = REG_DWORD;
  } else {
    trace.Check("%s=%s:size=%u bytes\n", value.keyword, data.get(), size);
  }
  if (value.isImagePath) {
    data = VXRDev_FixSystemPath(std::move(data));
    size = static_cast<DWORD>(std::strlen(data.get()) + 1);
    trace.Check("Fixed Binary=%s:size=%u bytes\n", data.get(), size);
  }
  return VXRReg_SetRegValueToHive(VXR_KEY_ORG_SERVICES, szService, value.name, data.get(), type, size);
}

BOOL WalkServiceAddReg(HINF hInf, INFCONTEXT *line, const char *szInfDir, const Caller &trace) {
  BOOL result = FALSE;
  HeapText section;
  for (DWORD field = 1; (section = TextField(hInf, line, field)) != nullptr; ++field) {
    if (*section == '\0') continue;  // omitted at a comma
    trace.Check("iAdd=%d:AddReg=%s\n", field, section.get());
    result = VXRDev_ProcessAddReg(hInf, szInfDir, section.get(), kServiceRoot);
  }
  return result;
}

}  // namespace

BOOL VXRDev_ProcessSrvcSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !DecorationsGiven(pVXRDriver)) return FALSE;
  trace.Check("SrvcSect=%s.%s:inj=%s\n", szInstSect, DecorationName(szDecoration),
              pVXRDriver->bInject ? "TRUE" : "FALSE");
  INFCONTEXT line = {};
  BOOL more =
      VXRDev_FindInfSection(hInf, szInstSect, szDecoration, "Services", pVXRDriver->pVXRDevice->szTargetOS, &line);
  for (; more; more = NextLine(&line)) {
    const HeapText key = TextField(hInf, &line, 0);
    if (key == nullptr) break;
    trace.Log(kFlush, "CHECK", "Key=%s\n", key.get());
    if (!BeginsWith(key.get(), "AddService")) {
      LogOtherServiceKey(key.get(), trace);
      continue;
    }
    const HeapText section = ReadAddService(hInf, &line, key.get(), pVXRDriver, trace);
    if (section == nullptr) continue;
    if (!pVXRDriver->bInject) {
      trace.Check("SrvInst=%s:located ok...\n", section.get());
      return TRUE;
    }
    trace.Check("SrvInst=%s:prepare to add service...\n", section.get());
    return VXRDev_ProcessSrvcInst(hInf, szInfDir, pVXRDriver->szService, section.get());
  }
  ReportRefusal(VXRMACHINE_REFUSED_NO_SERVICE, szInstSect);
  return FALSE;
}

BOOL VXRDev_ProcessSrvcInst(HINF hInf, const char *szInfDir, const char *szService, const char *szSrvcInst) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !Given(szService, "szService") || !Given(szSrvcInst, "szSrvcInst")) return FALSE;
  trace.Check("Service=%s:SrvcInst=%s\n", szService, szSrvcInst);
  INFCONTEXT line = {};
  if (!FirstLine(hInf, szSrvcInst, &line)) {
    ReportRefusal(VXRMACHINE_REFUSED_SERVICE_SECTION, szSrvcInst);
    return FALSE;
  }
  BOOL result = FALSE;
  HeapText key;
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    result = FALSE;
    key = TextField(hInf, &line, 0);
    if (key == nullptr) continue;
    trace.Log(kFlush, "CHECK", "Key=%s\n", key.get());
    if (const ServiceValue *value = FindServiceValue(key.get()); value != nullptr) {
      result = WriteServiceValue(hInf, &line, *value, szService, trace);
    } else if (BeginsWith(key.get(), "AddReg")) {
      result = WalkServiceAddReg(hInf, &line, szInfDir, trace);
    } else {
      trace.Error("unknown field=%s:corrupted inf file!\n", key.get());
      result = TRUE;
    }
  }
  if (!result) ReportRefusal(VXRMACHINE_REFUSED_SERVICE_VALUE, key.get());
  return result;
}

HeapText VXRDev_FixSystemPath(HeapText szImage) {
  static constexpr char kDirectory[] = "system32\\drivers";
  const CallTrace trace = TraceCall();
  if (!Given(szImage.get(), "szImage")) return nullptr;
  trace.Check("input imagepath=%s\n", szImage.get());
  const char *tail = LastBackslash(szImage.get());
  if (tail == nullptr) return szImage;
  trace.Check("extracted image file name=%s\n", tail);
  const SIZE_T size = std::strlen(kDirectory) + std::strlen(tail) + 1;
  HeapText fixed = AllocText(size, "szFixedImage");
  if (fixed == nullptr) return szImage;
  PutText(fixed.get(), size, "szFixedImage", {kDirectory, tail});
  trace.Check("fixed image:%s --> %s\n", szImage.get(), fixed.get());
  return fixed;
}
