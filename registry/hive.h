// Mounting of the restored system's hive at HKLM\SYSTEM_ORG.
#pragma once

#include "vxr/parameters.h"

BOOL VXRReg_LoadHiveFile(const char *szSysPath, const char *szLoadFile);
// Unmounts what this process mounted and forgets it, whether or not the tool succeeds. TRUE when nothing was mounted.
BOOL VXRReg_UnloadHive(const char *szSysPath);
// Mounts the restored system's hive (0 system, 1 software, 2 security, 3 sam) and records its control set in the block;
// with `bInject` FALSE does nothing and succeeds. On failure nothing stays mounted.
BOOL VXRReg_LoadHive(DWORD hiveType, VXR_PARABLOCK *pVXRParaBlock);
