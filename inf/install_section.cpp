#include "inf/install_section.h"

#include <algorithm>

#include "engine/base/decisions.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/walks.h"
#include "log/log.h"
#include "platform/scope_guard.h"

namespace {

constexpr DWORD kFirstModelId = 2;  // field of a model line; field 1 is the install section

// Whether a model line lists the id; the driver then borrows it.
bool MatchModelLine(HINF hInf, INFCONTEXT *line, const char *szHardwareID, VXR_DRIVER *driver, const Caller &trace) {
  const DWORD count = platform::SetupGetFieldCount(line);
  for (DWORD field = kFirstModelId; field <= count; ++field) {
    const HeapText id = TextField(hInf, line, field);
    if (id == nullptr) continue;
    trace.Flush("checking id %s...\n", id.get());
    if (VXRDev_CheckHardwareIDMatch(id.get(), szHardwareID, driver)) {
      trace.Check("found matched id = %s!\n", id.get());
      driver->szMatchedID = szHardwareID;
      return true;
    }
    trace.Flush("not a match for id %s ...\n", id.get());
  }
  return false;
}

// Installs what a matching model line names.
bool InstallModelLine(HINF hInf, INFCONTEXT *line, const char *szInfDir, const char *szDecoration, VXR_DRIVER *driver,
                      const Caller &trace) {
  const HeapText section = TextField(hInf, line, 1);
  if (section == nullptr) {
    trace.Error("no isntallation section found!\n");
    ReportRefusal(VXRMACHINE_REFUSED_NO_SECTION);
    return false;
  }
  if (!VXRDev_ProcessInstSect(hInf, szInfDir, section.get(), szDecoration, driver)) {
    trace.Error("VXRDev_ProcessInstSect() failed for InstSect=%s\n", section.get());
    return false;
  }
  trace.Check("successfully processed InstSect=%s:Arch=%s\n", section.get(), DecorationName(szDecoration));
  if (!VXRDev_ProcessSrvcSect(hInf, szInfDir, section.get(), szDecoration, driver)) {
    trace.Error("VXRDev_ProcessSrvcSect() failed for SrvcSect=%s\n", section.get());
    return false;
  }
  trace.Check("successfully processed SrvcSect=%s:Arch=%s\n", section.get(), DecorationName(szDecoration));
  return true;
}

// The directives whose values are carried out one by one.
struct ValueDirective {
  const char *keyword;
  BOOL (*process)(HINF hInf, const char *szInfDir, char *value, VXR_DRIVER *driver);
};
constexpr ValueDirective kValueDirectives[] = {
    {"CopyFiles", VXRDev_ProcessCopyFiles},
    {"CopyINF", VXRDev_ProcessCopyFile},
    {"AddReg", [](HINF hInf, const char *szInfDir, char *value,
                  VXR_DRIVER *) { return VXRDev_ProcessAddReg(hInf, szInfDir, value, kInstallRoot); }},
};

// What an install section may ask for without our doing it.
constexpr const char *kPassedOver[] = {"DelReg",          "DriverVer", "Include",      "Needs",          "Delfiles",
                                       "Renfiles",        "BitReg",    "LogConfig",    "ProfileItems",   "UpdateInis",
                                       "UpdateIniFields", "Ini2Reg",   "RegisterDlls", "UnregisterDlls", "ExcludeID"};

// A line of an install section.
struct Directive {
  INFCONTEXT *line;
  DWORD fieldCount;
  HeapText key;
  HeapText lastValue;  // the last value that was carried out; null before
};

// Carries out all values of the line, also after one that fails. The last one decides; without any it is a failure.
BOOL RunValues(HINF hInf, const char *szInfDir, const ValueDirective &kind, Directive *directive, VXR_DRIVER *driver,
               const Caller &trace) {
  BOOL result = FALSE;
  for (DWORD field = 1; field <= directive->fieldCount; ++field) {
    HeapText value = FilledField(hInf, directive->line, field);
    if (value == nullptr) continue;
    trace.Flush("iFldCnt=%d:%s=%s\n", field, kind.keyword, value.get());
    result = kind.process(hInf, szInfDir, value.get(), driver);
    directive->lastValue = std::move(value);
  }
  if (directive->lastValue == nullptr) ReportRefusal(VXRMACHINE_REFUSED_EMPTY_DIRECTIVE, directive->key.get());
  return result;
}

// TRUE for a key that may be passed over, FALSE for one that no INF file has.
BOOL PassOver(const char *key, const Caller &trace) {
  trace.Fixme("not processing field=%s...\n", key);
  const bool known = std::any_of(std::begin(kPassedOver), std::end(kPassedOver),
                                 [key](const char *keyword) { return BeginsWith(key, keyword); });
  if (!known) {
    trace.Error("unknown field=%s:corrupted inf file!\n", key);
    ReportRefusal(VXRMACHINE_REFUSED_DIRECTIVE, key);
  }
  return known;
}

BOOL RunDirective(HINF hInf, const char *szInfDir, Directive *directive, VXR_DRIVER *driver, const Caller &trace) {
  const char *key = directive->key.get();
  for (const ValueDirective &kind : kValueDirectives) {
    if (BeginsWith(key, kind.keyword)) return RunValues(hInf, szInfDir, kind, directive, driver, trace);
  }
  return PassOver(key, trace);
}

}  // namespace

BOOL VXRDev_ProcessModSect(HINF hInf, const char *szInfDir, const char *szModSect, const char *szDecoration,
                           const char *szHardwareID, VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  trace.Flush("ModSect=%s.%s:id=%s\n", szModSect, DecorationName(szDecoration), szHardwareID);
  INFCONTEXT line = {};
  if (!VXRDev_FindInfSection(hInf, szModSect, szDecoration, nullptr, nullptr, &line)) return FALSE;
  trace.Flush("found section=%s.%s\n", szModSect, DecorationName(szDecoration));
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    const HeapText device = TextField(hInf, &line, 0);
    if (device == nullptr) continue;
    trace.Flush("checking device:%s..\n", device.get());
    if (!MatchModelLine(hInf, &line, szHardwareID, pVXRDriver, trace)) {
      trace.Flush("context:line=%03u:sec=%03u!\n", line.Line, line.Section);
      continue;
    }
    if (InstallModelLine(hInf, &line, szInfDir, szDecoration, pVXRDriver, trace)) {
      platform::ReportDecision(VXRMACHINE_DRIVER_TAKEN, device.get(), szHardwareID);
      return TRUE;
    }
    platform::ReportDecision(VXRMACHINE_MODEL_GIVEN_UP, device.get(), szHardwareID);
  }
  return FALSE;
}

BOOL VXRDev_ProcessInstSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !Given(szInfDir, "szInfDir") || !DecorationsGiven(pVXRDriver)) return FALSE;
  trace.Flush("InstSect=%s.%s\n", szInstSect, DecorationName(szDecoration));
  INFCONTEXT line = {};
  if (!VXRDev_FindInfSection(hInf, szInstSect, szDecoration, nullptr, pVXRDriver->pVXRDevice->szTargetOS, &line)) {
    ReportRefusal(VXRMACHINE_REFUSED_NO_SECTION, szInstSect);
    return FALSE;
  }
  BOOL result = FALSE;
  bool bare = false;  // the last line read has no key
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    result = FALSE;
    Directive directive = {&line, 0, TextField(hInf, &line, 0), nullptr};
    bare = directive.key == nullptr;
    if (bare) continue;
    directive.fieldCount = platform::SetupGetFieldCount(&line);
    trace.Flush("Key=%s:FieldCount=%d\n", directive.key.get(), directive.fieldCount);
    result = RunDirective(hInf, szInfDir, &directive, pVXRDriver, trace);
    if (!result) {
      const HeapText &last = directive.lastValue != nullptr ? directive.lastValue : directive.key;
      trace.Error("failed to process %s\n", last.get());
      break;
    }
  }
  if (bare) ReportRefusal(VXRMACHINE_REFUSED_BARE_LINE, szInstSect);
  trace.Check(result ? "InstSect=%s.%s:processed ok!\n" : "InstSect=%s.%s:processing failed!\n", szInstSect,
              DecorationName(szDecoration));
  return result;
}

BOOL VXRDev_ProcessAddReg(HINF hInf, const char *, const char *szSection, DWORD uiHKRType) {
  const CallTrace trace = TraceCall();
  const ScopeGuard done([&] { trace.Check("section %s:done.\n", szSection); });
  if (!HandleGiven(hInf) || !Given(szSection, "szSection")) return FALSE;
  trace.Check("section=%s\n", szSection);
  if (uiHKRType != kServiceRoot) {
    trace.Warning("uiHKRType=%d:bypass processing\n", uiHKRType);
    return TRUE;
  }
  INFCONTEXT line = {};
  if (!FirstLine(hInf, szSection, &line)) return FALSE;
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    const HeapText root = TextField(hInf, &line, 1);
    if (root == nullptr) {
      trace.Failed("VXRDev_GetInfLineField", "No Root !\n");
      continue;
    }
    trace.Flush("checking root %s...\n", root.get());
    if (BeginsWith(root.get(), "HKU") || BeginsWith(root.get(), "HKCU") || BeginsWith(root.get(), "HKCR")) {
      trace.Warning("szRoot=%s:bypassed processing...\n", root.get());
    }
  }
  return TRUE;
}
