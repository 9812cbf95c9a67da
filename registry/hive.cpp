#include "registry/hive.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "engine/base/processes.h"
#include "engine/base/status.h"
#include "engine/path_catalogue.h"
#include "log/heap.h"
#include "log/log.h"
#include "registry/values.h"

char *szCurHiveFile = nullptr;

namespace {

constexpr const char *kMountPoint = "HKLM\\SYSTEM_ORG";

constexpr SIZE_T kCommandSize = 512;

// Names in the restored system's configuration directory, by hive type.
constexpr const char *kHiveNames[] = {"system", "software", "security", "sam"};

// The tool's command line in a buffer of kCommandSize bytes; false after logging that it does not fit. `file` is null
// for UNLOAD, whose line ends in a blank.
bool FormatCommand(char *command, const char *szSysPath, const char *verb, const char *file, const char *caller) {
  const char *toolQuote = QuoteFor(szSysPath);
  const char *name = file != nullptr ? file : "";
  const char *fileQuote = QuoteFor(name);
  const int length = std::snprintf(command, kCommandSize, "%s%s\\reg.exe%s %s %s %s%s%s", toolQuote, szSysPath,
                                   toolQuote, verb, kMountPoint, fileQuote, name, fileQuote);
  if (length >= 0 && static_cast<SIZE_T>(length) < kCommandSize) return true;
  VXRDbg_Log(kError, "ERROR:%s:the %s command for %s needs %d bytes, %d fit; use shorter paths\n", caller, verb, name,
             length + 1, static_cast<int>(kCommandSize));
  return false;
}

BOOL RunUnload(const char *szSysPath, const char *caller) {
  VXRDbg_Log(kCheck, "CHECK:%s:unloading original hive %s at %s...\n", caller, szCurHiveFile, kMountPoint);
  const HeapText szCmmd = AllocTextUnlogged(kCommandSize);
  if (szCmmd == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:AllocHeap(%d bytes) failed for szCmmd!ec=%d\n", caller, static_cast<int>(kCommandSize),
               platform::GetLastError());
    return FALSE;
  }
  DWORD exitCode = 0;
  if (!FormatCommand(szCmmd.get(), szSysPath, "UNLOAD", nullptr, caller)) return FALSE;
  if (!VXREng_ExecCommand(szCmmd.get(), &exitCode)) {
    VXRDbg_Log(kCheck, "CHECK:%s:VXREng_ExecCommand() failed!\n", caller);
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:unloaded original hive %s at %s...\n", caller, szCurHiveFile, kMountPoint);
  return TRUE;
}

// Mounts the hive of that type and records its control set.
BOOL LoadHiveOfType(DWORD hiveType, VXR_PARABLOCK *block, const char *caller) {
  const HeapText path =
      hiveType < std::size(kHiveNames) ? VXREng_GetStringAs(VXR_DIR_WINCFG, kHiveNames[hiveType]) : nullptr;
  if (path == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:VXREng_GetStringAs(%d) failed!\n", caller, VXR_DIR_WINCFG);
    return FALSE;
  }
  if (!VXRReg_LoadHiveFile(block->szSystemPath, path.get())) {
    VXRDbg_Log(kError, "ERROR:%s:VXRReg_LoadHiveFile(%s, %s) failed!\n", caller, block->szSystemPath, path.get());
    return FALSE;
  }
  block->dwCtrlSetIndex = VXRReg_GetControlSetIndex(FALSE);
  VXRDbg_Log(kCheck, "CHECK:%s:Control Set Index = %d\n", caller, block->dwCtrlSetIndex);
  return TRUE;
}

}  // namespace

BOOL VXRReg_LoadHiveFile(const char *szSysPath, const char *szLoadFile) {
  const CallTrace trace = TraceCall();
  if (szLoadFile == nullptr || szSysPath == nullptr) {
    LogNull(szLoadFile == nullptr ? "szLoadFile" : "szSysPath");
    return FALSE;
  }
  VXRReg_UnloadHive(szSysPath);
  VXRDbg_Log(kCheck, "CHECK:%s:loading hive %s to %s...\n", __func__, szLoadFile, kMountPoint);
  const HeapText szCmmd = AllocText(kCommandSize, "szCmmd");
  if (szCmmd == nullptr || !FormatCommand(szCmmd.get(), szSysPath, "LOAD", szLoadFile, __func__)) return FALSE;
  // Made first: a hive that is mounted and not remembered would never be unmounted.
  const SIZE_T size = std::strlen(szLoadFile) + 1;
  HeapText hiveFile = AllocText(size, "szCurHiveFile");
  if (hiveFile == nullptr) return FALSE;
  std::memcpy(hiveFile.get(), szLoadFile, size);

  DWORD exitCode = 0;
  if (!VXREng_ExecCommand(szCmmd.get(), &exitCode)) {
    LogFailure("VXREng_ExecCommand", szCmmd.get());
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:hive %s loaded ok to %s\n", __func__, szLoadFile, kMountPoint);
  szCurHiveFile = hiveFile.release();
  VXRDbg_Log(kCheck, "CHECK:%s:current loaded hive file is %s\n", __func__, szCurHiveFile);
  return TRUE;
}

BOOL VXRReg_UnloadHive(const char *szSysPath) {
  const CallTrace trace = TraceCall();
  if (szCurHiveFile == nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:no hive file found!\n", __func__);
    return TRUE;
  }
  BOOL unloaded = FALSE;
  if (szSysPath != nullptr) {
    unloaded = RunUnload(szSysPath, __func__);
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s:szSysPath is NULL\n", __func__);
  }
  FreeMember(szCurHiveFile);
  return unloaded;
}

BOOL VXRReg_LoadHive(DWORD hiveType, VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) {
    LogNull("pVXRParaBlock");
    return FALSE;
  }
  if (!pVXRParaBlock->bInject) {
    VXREng_StatusMsg(kProgress, "Check only, bypass loading the original registry hive...\n");
    return TRUE;
  }
  if (LoadHiveOfType(hiveType, pVXRParaBlock, __func__)) return TRUE;
  VXRReg_UnloadHive(pVXRParaBlock->szSystemPath);
  return FALSE;
}
