// The files that an install section copies.
#include <cstring>

#include "engine/base/decisions.h"
#include "engine/base/files.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "engine/paths/path_catalogue.h"
#include "inf/checks.h"
#include "inf/install_section.h"
#include "inf/walks.h"
#include "log/characters.h"
#include "log/log.h"
#include "platform/device_name.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr SIZE_T kSourceSpare = 1;  // bytes of a source path beyond the backslash and the terminator

// Where files go, by what their upper-case name contains, and where the running system keeps its own of that kind.
struct Destination {
  const char *contains;
  DWORD target;
  DWORD runningSource;
};
constexpr Destination kDestinations[] = {
    {".SYS", VXR_DIR_WINDRV, VXR_DIR_WPEDRV},
    {".INF", VXR_DIR_WININF, VXR_DIR_WPEINF},
    {"", VXR_DIR_WINSYS, VXR_DIR_WPESYS},
};

const Destination &DestinationOf(const char *name) {
  const Destination *destination = kDestinations;
  while (std::strstr(name, destination->contains) == nullptr) ++destination;
  return *destination;
}

// Whether a name that an INF file gives is that of one file in the directory that we choose: no path that would lead
// elsewhere, no pattern that another file would answer, no device. The name is in upper case.
bool IsPlainFileName(const char *name) {
  bool onlyDots = true;
  for (const char *p = name; *p != '\0'; p += CharacterLength(p)) {
    onlyDots = onlyDots && (*p == '.' || *p == ' ');
    if (static_cast<BYTE>(*p) < ' ' || std::strchr("\\/:*?\"<>|", *p) != nullptr) return false;
  }
  return !onlyDots && !IsDeviceName(name, CodePageDigits);
}

// A path of the catalogue that ends in the file's name; logs when there is none.
HeapText CataloguePath(DWORD id, const char *name, const Caller &trace) {
  HeapText path = VXREng_GetStringAs(id, name);
  if (path == nullptr) trace.Failed("VXREng_GetStringAs", name);
  return path;
}

// Where the file is to be found. `runningInf` is the running system's INF directory: files of an INF file that lies
// there are already in place in the running system.
HeapText SourcePath(const char *szInfDir, const char *name, const char *runningInf, const Caller &trace) {
  const bool running = BeginsWith(szInfDir, runningInf);
  HeapText source = running ? CataloguePath(DestinationOf(name).runningSource, name, trace)
                            : JoinPath(szInfDir, name, kSourceSpare, "szSource", trace);
  if (source != nullptr) {
    trace.Flush("%s:source to %s\n", running ? "IDE" : "SCSI", source.get());
  }
  return source;
}

// The copy ends before anything is known of the source or the target but their name.
BOOL GiveUp(const char *fileName) {
  ReportRefusal(VXRMACHINE_REFUSED_FILE_NOT_COPIED, fileName);
  return FALSE;
}

BOOL CopyOrCheck(const char *source, const char *target, BOOL bInject, const Caller &trace) {
  if (!bInject) {
    VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Check only, bypassed copying %s -> %s...\n", source, target);
    platform::ReportDecision(VXRMACHINE_COPY_BYPASSED, target, source);
    return TRUE;
  }
  trace.Check("VXREng_CopyFile:%s -> %s...\n", source, target);
  if (!VXREng_CopyFile(source, target, FALSE)) {
    VXREng_StatusMsg(VXR_RESULT_FILE_NOT_COPIED, "Failed to copy %s to %s\n", source, target);
    ReportRefusal(VXRMACHINE_REFUSED_FILE_NOT_COPIED, target);
    return FALSE;
  }
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Successfully copied %s -> %s...\n", source, target);
  return TRUE;
}

}  // namespace

BOOL VXRDev_ProcessCopyFiles(HINF hInf, const char *szInfDir, char *szSection, VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !Given(szInfDir, "szInfDir") || !Given(szSection, "szSection")) return FALSE;
  trace.Check("section=%s:infdir=%s\n", szSection, szInfDir);
  return szSection[0] == '@' ? VXRDev_ProcessCopyFile(hInf, szInfDir, szSection + 1, pVXRDriver)
                             : VXRDev_ProcessCopySect(hInf, szInfDir, szSection, pVXRDriver);
}

BOOL VXRDev_ProcessCopySect(HINF hInf, const char *szInfDir, const char *szSection, VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!HandleGiven(hInf) || !Given(szSection, "szSection") || !Given(szInfDir, "szInfDir")) return FALSE;
  trace.Check("CopySection=%s:InfDir=%s\n", szSection, szInfDir);
  INFCONTEXT line = {};
  if (!FirstLine(hInf, szSection, &line)) {
    ReportRefusal(VXRMACHINE_REFUSED_COPY_SECTION, szSection);
    return FALSE;
  }
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    const HeapText destination = TextField(hInf, &line, 1);
    if (destination == nullptr) {
      trace.Failed("VXRDev_GetInfLineField", "No desitination file field!");
      continue;
    }
    const HeapText source = FilledField(hInf, &line, 2);
    if (source != nullptr) trace.Fixme("src=%s:NOT-Processed!!!\n", source.get());
    trace.Check("dst=%s..\n", destination.get());
    if (!VXRDev_ProcessCopyFile(hInf, szInfDir, destination.get(), pVXRDriver)) {
      trace.Failed("VXRDev_ProcessCopyFile", destination.get());
      return FALSE;
    }
  }
  return TRUE;
}

BOOL VXRDev_ProcessCopyFile(HINF, const char *szInfDir, char *szFileName, VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDir, "szInfDir") || !Given(szFileName, "szFileName") || !Given(pVXRDriver, "pVXRDriver")) {
    return FALSE;
  }
  trace.Check("file=%s:infdir=%s\n", szFileName, szInfDir);
  VXREng_StrUpr(szFileName);
  if (!IsPlainFileName(szFileName)) {
    trace.Error("%s is not the name of one file, not followed\n", szFileName);
    VXREng_StatusMsg(VXR_RESULT_FILE_MISSING, "Failed to locate file %s!\n", szFileName);
    ReportRefusal(VXRMACHINE_REFUSED_FILE_NAME, szFileName);
    return FALSE;
  }
  const HeapText runningInf = VXREng_GetStringAs(VXR_DIR_WPEINF, nullptr);
  if (runningInf == nullptr) {
    trace.Failed("VXREng_GetStringAs", "VXR_DIR_WPEINF");
    return GiveUp(szFileName);
  }
  const HeapText source = SourcePath(szInfDir, szFileName, runningInf.get(), trace);
  if (source == nullptr) return GiveUp(szFileName);
  if (!VXREng_FileExists(source.get())) {
    VXREng_StatusMsg(VXR_RESULT_FILE_MISSING, "Failed to locate file %s!\n", source.get());
    ReportRefusal(VXRMACHINE_REFUSED_FILE_MISSING, source.get());
    return FALSE;
  }
  trace.Check("source is %s\n", source.get());
  const HeapText target = CataloguePath(DestinationOf(szFileName).target, szFileName, trace);
  if (target == nullptr) return GiveUp(szFileName);
  trace.Check("target is %s....\n", target.get());
  return CopyOrCheck(source.get(), target.get(), pVXRDriver->bInject, trace);
}
