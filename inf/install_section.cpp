#include "inf/install_section.h"

#include <algorithm>

#include "engine/base/decisions.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/walks.h"
#include "log/log.h"
#include "log/scope_guard.h"

namespace {

constexpr DWORD kFirstModelId = 2;  // field of a model line; field 1 is the install section

// Whether a model line lists the id; the driver then borrows it.
bool MatchModelLine(HINF hInf, INFCONTEXT *line, const char *szHardwareID, VXR_DRIVER *driver, const char *caller) {
  const DWORD count = platform::SetupGetFieldCount(line);
  for (DWORD field = kFirstModelId; field <= count; ++field) {
    const HeapText id = TextField(hInf, line, field);
    if (id == nullptr) continue;
    VXRDbg_Log(kFlush, "FLUSH:%s:checking id %s...\n", caller, id.get());
    if (VXRDev_CheckHardwareIDMatch(id.get(), szHardwareID, driver)) {
      VXRDbg_Log(kCheck, "CHECK:%s:found matched id = %s!\n", caller, id.get());
      driver->szMatchedID = szHardwareID;
      return true;
    }
    VXRDbg_Log(kFlush, "FLUSH:%s:not a match for id %s ...\n", caller, id.get());
  }
  return false;
}

// Installs what a matching model line names.
bool InstallModelLine(HINF hInf, INFCONTEXT *line, const char *szInfDir, const char *szDecoration, VXR_DRIVER *driver,
                      const char *caller) {
  const HeapText section = TextField(hInf, line, 1);
  if (section == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:no isntallation section found!\n", caller);
    ReportRefusal(VXRMACHINE_REFUSED_NO_SECTION);
    return false;
  }
  if (!VXRDev_ProcessInstSect(hInf, szInfDir, section.get(), szDecoration, driver)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_ProcessInstSect() failed for InstSect=%s\n", caller, section.get());
    return false;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:successfully processed InstSect=%s:Arch=%s\n", caller, section.get(),
             DecorationName(szDecoration));
  if (!VXRDev_ProcessSrvcSect(hInf, szInfDir, section.get(), szDecoration, driver)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_ProcessSrvcSect() failed for SrvcSect=%s\n", caller, section.get());
    return false;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:successfully processed SrvcSect=%s:Arch=%s\n", caller, section.get(),
             DecorationName(szDecoration));
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
                  const char *caller) {
  const HeapText &key = *text;
  for (const ValueDirective &directive : kValueDirectives) {
    if (!BeginsWith(key.get(), directive.keyword)) continue;
    BOOL result = FALSE;
    bool valued = false;
    for (DWORD field = 1; field <= count; ++field) {
      HeapText value = FilledField(hInf, line, field);
      if (value == nullptr) continue;
      VXRDbg_Log(kFlush, "FLUSH:%s:iFldCnt=%d:%s=%s\n", caller, field, directive.keyword, value.get());
      result = directive.process(hInf, szInfDir, value.get(), driver);
      *text = std::move(value);
      valued = true;
    }
    if (!valued) ReportRefusal(VXRMACHINE_REFUSED_EMPTY_DIRECTIVE, key.get());
    return result;
  }
  VXRDbg_Log(kFixme, "FIXME:%s:not processing field=%s...\n", caller, key.get());
  const bool known = std::any_of(std::begin(kPassedOver), std::end(kPassedOver),
                                 [&](const char *keyword) { return BeginsWith(key.get(), keyword); });
  if (!known) {
    VXRDbg_Log(kError, "ERROR:%s:unknown field=%s:corrupted inf file!\n", caller, key.get());
    ReportRefusal(VXRMACHINE_REFUSED_DIRECTIVE, key.get());
  }
  return known;
}

}  // namespace

BOOL VXRDev_ProcessModSect(HINF hInf, const char *szInfDir, const char *szModSect, const char *szDecoration,
                           const char *szHardwareID, VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  VXRDbg_Log(kFlush, "FLUSH:%s:ModSect=%s.%s:id=%s\n", __func__, szModSect, DecorationName(szDecoration), szHardwareID);
  INFCONTEXT line = {};
  if (!VXRDev_FindInfSection(hInf, szModSect, szDecoration, nullptr, nullptr, &line)) return FALSE;
  VXRDbg_Log(kFlush, "FLUSH:%s:found section=%s.%s\n", __func__, szModSect, DecorationName(szDecoration));
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    const HeapText device = TextField(hInf, &line, 0);
    if (device == nullptr) continue;
    VXRDbg_Log(kFlush, "FLUSH:%s:checking device:%s..\n", __func__, device.get());
    if (!MatchModelLine(hInf, &line, szHardwareID, pVXRDriver, __func__)) {
      VXRDbg_Log(kFlush, "FLUSH:%s:context:line=%03u:sec=%03u!\n", __func__, line.Line, line.Section);
      continue;
    }
    if (InstallModelLine(hInf, &line, szInfDir, szDecoration, pVXRDriver, __func__)) {
      platform::ReportDecision(VXRMACHINE_DRIVER_TAKEN, device.get(), szHardwareID);
      return TRUE;
    }
  }
  return FALSE;
}

BOOL VXRDev_ProcessInstSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !Given(szInfDir, "szInfDir") || !DecorationsGiven(pVXRDriver)) return FALSE;
  VXRDbg_Log(kFlush, "FLUSH:%s:InstSect=%s.%s\n", __func__, szInstSect, DecorationName(szDecoration));
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
    VXRDbg_Log(kFlush, "FLUSH:%s:Key=%s:FieldCount=%d\n", __func__, text.get(), count);
    result = RunDirective(hInf, &line, count, szInfDir, &text, pVXRDriver, __func__);
    if (!result) {
      VXRDbg_Log(kError, "ERROR:%s:failed to process %s\n", __func__, text.get());
      break;
    }
  }
  if (text == nullptr) ReportRefusal(VXRMACHINE_REFUSED_BARE_LINE, szInstSect);
  VXRDbg_Log(kCheck,
             result ? "CHECK:%s:InstSect=%s.%s:processed ok!\n" : "CHECK:%s:InstSect=%s.%s:processing failed!\n",
             __func__, szInstSect, DecorationName(szDecoration));
  return result;
}

BOOL VXRDev_ProcessAddReg(HINF hInf, const char *, const char *szSection, DWORD uiHKRType) {
  const CallTrace trace = TraceCall();
  const char *function = __func__;
  const ScopeGuard done([=] { VXRDbg_Log(kCheck, "CHECK:%s:section %s:done.\n", function, szSection); });
  if (!HandleGiven(hInf) || !Given(szSection, "szSection")) return FALSE;
  VXRDbg_Log(kCheck, "CHECK:%s:section=%s\n", __func__, szSection);
  if (uiHKRType != kServiceRoot) {
    VXRDbg_Log(kWarning, "WARNG:%s:uiHKRType=%d:bypass processing\n", __func__, uiHKRType);
    return TRUE;
  }
  INFCONTEXT line = {};
  if (!FirstLine(hInf, szSection, &line)) return FALSE;
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    const HeapText root = TextField(hInf, &line, 1);
    if (root == nullptr) {
      LogFailure("VXRDev_GetInfLineField", "No Root !\n");
      continue;
    }
    VXRDbg_Log(kFlush, "FLUSH:%s:checking root %s...\n", __func__, root.get());
    if (BeginsWith(root.get(), "HKU") || BeginsWith(root.get(), "HKCU") || BeginsWith(root.get(), "HKCR")) {
      VXRDbg_Log(kWarning, "WARNG:%s:szRoot=%s:bypassed processing...\n", __func__, root.get());
    }
  }
  return TRUE;
}
