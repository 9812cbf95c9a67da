#include "registry/mount/hive.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "engine/base/processes.h"
#include "engine/base/status.h"
#include "engine/paths/path_catalogue.h"
#include "log/heap.h"
#include "log/log.h"
#include "registry/values.h"
#include "restore/settings.h"

char *szCurHiveFile = nullptr;

namespace {

constexpr const char *kMountPoint = "HKLM\\" VXR_RESTORED_HIVE;

constexpr SIZE_T kCommandSize = 512;

// Names in the restored system's configuration directory, by hive type.
constexpr const char *kHiveNames[] = {"system", "software", "security", "sam"};

// The tool's command line in a buffer of kCommandSize bytes; false after logging that it does not fit. `file` is null
// for UNLOAD, whose line ends in a blank.
bool FormatCommand(char *command, const char *szSysPath, const char *verb, const char *file, const Caller &trace) {
  const char *toolQuote = QuoteFor(szSysPath);
  const char *name = file != nullptr ? file : "";
  const char *fileQuote = QuoteFor(name);
  const int length = std::snprintf(command, kCommandSize, "%s%s\\reg.exe%s %s %s %s%s%s", toolQuote, szSysPath,
                                   toolQuote, verb, kMountPoint, fileQuote, name, fileQuote);
  if (length >= 0 && static_cast<SIZE_T>(length) < kCommandSize) return true;
  trace.Error("the %s command for %s needs %d bytes, %d fit; use shorter paths\n", verb, name, length + 1,
              static_cast<int>(kCommandSize));
  return false;
}

BOOL RunUnload(const char *szSysPath, const Caller &trace) {
  trace.Check("unloading original hive %s at %s...\n", szCurHiveFile, kMountPoint);
  const HeapText szCmmd = AllocTextUnlogged(kCommandSize);
  if (szCmmd == nullptr) {
    trace.Error("AllocHeap(%d bytes) failed for szCmmd!ec=%d\n", static_cast<int>(kCommandSize),
                platform::GetLastError());
    return FALSE;
  }
  DWORD exitCode = 0;
  if (!FormatCommand(szCmmd.get(), szSysPath, "UNLOAD", nullptr, trace)) return FALSE;
  if (!VXREng_ExecCommand(szCmmd.get(), &exitCode)) {
    trace.Check("VXREng_ExecCommand() failed!\n");
    return FALSE;
  }
  trace.Check("unloaded original hive %s at %s...\n", szCurHiveFile, kMountPoint);
  return TRUE;
}

// Mounts the hive of that type and records its control set.
BOOL LoadHiveOfType(DWORD hiveType, VXR_PARABLOCK *block, const Caller &trace) {
  const HeapText path =
      hiveType < std::size(kHiveNames) ? VXREng_GetStringAs(VXR_DIR_WINCFG, kHiveNames[hiveType]) : nullptr;
  if (path == nullptr) {
    trace.Error("VXREng_GetStringAs(%d) failed!\n", VXR_DIR_WINCFG);
    return FALSE;
  }
  if (!VXRReg_LoadHiveFile(block->szSystemPath, path.get())) {
    trace.Error("VXRReg_LoadHiveFile(%s, %s) failed!\n", block->szSystemPath, path.get());
    return FALSE;
  }
  block->dwCtrlSetIndex = VXRReg_GetControlSetIndex(FALSE);
  trace.Check("Control Set Index = %d\n", block->dwCtrlSetIndex);
  return TRUE;
}

}  // namespace

BOOL VXRReg_LoadHiveFile(const char *szSysPath, const char *szLoadFile) {
  const CallTrace trace = TraceCall();
  if (szLoadFile == nullptr || szSysPath == nullptr) {
    trace.Null(szLoadFile == nullptr ? "szLoadFile" : "szSysPath");
    return FALSE;
  }
  VXRReg_UnloadHive(szSysPath);
  trace.Check("loading hive %s to %s...\n", szLoadFile, kMountPoint);
  const HeapText szCmmd = AllocText(kCommandSize, "szCmmd");
  if (szCmmd == nullptr || !FormatCommand(szCmmd.get(), szSysPath, "LOAD", szLoadFile, trace)) return FALSE;
  // Made first: a hive that is mounted and not remembered would never be unmounted.
  const SIZE_T size = std::strlen(szLoadFile) + 1;
  HeapText hiveFile = AllocText(size, "szCurHiveFile");
  if (hiveFile == nullptr) return FALSE;
  std::memcpy(hiveFile.get(), szLoadFile, size);

  DWORD exitCode = 0;
  if (!VXREng_ExecCommand(szCmmd.get(), &exitCode)) {
    trace.Failed("VXREng_ExecCommand", szCmmd.get());
    return FALSE;
  }
  trace.Check("hive %s loaded ok to %s\n", szLoadFile, kMountPoint);
  szCurHiveFile = hiveFile.release();
  trace.Check("current loaded hive file is %s\n", szCurHiveFile);
  return TRUE;
}

BOOL VXRReg_UnloadHive(const char *szSysPath) {
  const CallTrace trace = TraceCall();
  if (szCurHiveFile == nullptr) {
    trace.Check("no hive file found!\n");
    return TRUE;
  }
  BOOL unloaded = FALSE;
  if (szSysPath != nullptr) {
    unloaded = RunUnload(szSysPath, trace);
  } else {
    trace.Check("szSysPath is NULL\n");
  }
  FreeMember(szCurHiveFile);
  return unloaded;
}

BOOL VXRReg_LoadHive(DWORD hiveType, VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) {
    trace.Null("pVXRParaBlock");
    return FALSE;
  }
  // What Windows' rules would write depends on what stands in the hive.
  if (!pVXRParaBlock->bInject && VXRRlm_GetChoices().rules == DriverRules::kExact) {
    VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Check only, bypass loading the original registry hive...\n");
    return TRUE;
  }
  if (LoadHiveOfType(hiveType, pVXRParaBlock, trace)) return TRUE;
  VXRReg_UnloadHive(pVXRParaBlock->szSystemPath);
  return FALSE;
}
