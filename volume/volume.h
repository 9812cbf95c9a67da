// The restored system volume, and the kinds of volume at backup time.
#pragma once

#include "vxr/parameters.h"

// Whether the restore settings say where the restored system is: takes the boot partition and the root path from them
// and logs what they hold. FALSE, after logging, without a block or when one of the two is missing. With the block's
// `bInject` FALSE succeeds without looking. `job` is not used.
BOOL VXRVol_LocateVolume(DWORD job, VXR_PARABLOCK *pVXRParaBlock);

inline constexpr DWORD kHoldsBootIni = 0x1;
inline constexpr DWORD kHoldsSystem = 0x2;

// What a drive holds, for an upper-case drive letter (a lower-case one never gets kHoldsSystem): 0x400 always,
// kHoldsBootIni for a boot.ini in its root, kHoldsSystem for the running system's system directory. Never fails: what
// cannot be tested stays unset.
DWORD VXRVol_CheckVolumeType(char driveLetter);
