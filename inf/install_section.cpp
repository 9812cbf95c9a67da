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

// One line of an install section. `text` is its key and becomes the last text that was read from the line.
BOOL RunDirective(HINF hInf, INFCONTEXT *line, DWORD count, const char *szInfDir, HeapText *text, VXR_DRIVER *driver,
                  const Caller &trace) {
  const HeapText &key = *text;
  for (const ValueDirective &directive : kValueDirectives) {
    if (!BeginsWith(key.get(), directive.keyword)) continue;
    BOOL result = FALSE;
    bool valued = false;
    for (DWORD field = 1; field <= count; ++field) {
      HeapText value = FilledField(hInf, line, field);
      if (value == nullptr) continue;
      trace.Flush("iFldCnt=%d:%s=%s\n", field, directive.keyword, value.get());
      result = directive.process(hInf, szInfDir, value.get(), driver);
      *text = std::move(value);
      valued = true;
    }
    if (!valued) ReportRefusal(VXRMACHINE_REFUSED_EMPTY_DIRECTIVE, key.get());
    return result;
  }
  trace.Fixme("not processing field=%s...\n", key.get());
  const bool known = std::any_of(std::begin(kPassedOver), std::end(kPassedOver),
                                 [&](const char *keyword) { return BeginsWith(key.get(), keyword); });
  if (!known) {
    trace.Error("unknown field=%s:corrupted inf file!\n", key.get());
    ReportRefusal(VXRMACHINE_REFUSED_DIRECTIVE, key.get());
  }
  return known;
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
  HeapText text;
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    result = FALSE;
    text = TextField(hInf, &line, 0);
    if (text == nullptr) continue;
    const DWORD count = platform::SetupGetFieldCount(&line);
    trace.Flush("Key=%s:FieldCount=%d\n", text.get(), count);
    result = RunDirective(hInf, &line, count, szInfDir, &text, pVXRDriver, trace);
    if (!result) {
      trace.Error("failed to process %s\n", text.get());
      break;
    }
  }
  if (text == nullptr) ReportRefusal(VXRMACHINE_REFUSED_BARE_LINE, szInstSect);
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
