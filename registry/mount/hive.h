// Mounting of the restored system's hive at HKLM\SYSTEM_ORG, by the registry tool of the running system's directory.
// One hive at a time; which one is kept for the whole process.
#pragma once

#include "vxr/parameters.h"

// The hive file that is mounted, on the process heap; null when none.
extern char *szCurHiveFile;

// Mounts the hive file `szLoadFile` with the tool in `szSysPath`, after unmounting an earlier one. Paths with blanks
// are quoted. FALSE, with nothing mounted, when one is null, when the command line does not fit, or when the tool
// fails.
BOOL VXRReg_LoadHiveFile(const char *szSysPath, const char *szLoadFile);
// Saves and unmounts what this process mounted and forgets it, even when the tool fails or `szSysPath` is null: no
// unload is tried twice. TRUE when that went well or nothing was mounted.
BOOL VXRReg_UnloadHive(const char *szSysPath);
// Mounts the restored system's hive (0 system, 1 software, 2 security, 3 sam) and records its control set in the block;
// with `bInject` FALSE does nothing and succeeds. On failure nothing stays mounted.
BOOL VXRReg_LoadHive(DWORD hiveType, VXR_PARABLOCK *pVXRParaBlock);
