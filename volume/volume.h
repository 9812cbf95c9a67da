// The restored system volume, and the kinds of volume at backup time.
#pragma once

#include "vxr/parameters.h"

// Takes boot partition and root path from the restore settings; FALSE when one is missing. With `bInject` FALSE succeeds
// without looking.
BOOL VXRVol_LocateVolume(DWORD job, VXR_PARABLOCK *pVXRParaBlock);
// 0x400 always, 0x1 holds boot.ini, 0x2 holds the running system's system directory. An upper-case letter.
DWORD VXRVol_CheckVolumeType(char driveLetter);
