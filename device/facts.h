// Facts about the running machine.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// The medium that the running system was started from (VXR_BOOTMEDIA_...), by the drive of its system directory. FALSE,
// with VXR_BOOTMEDIA_UNKNOWN stored, when it is none of disk, CD-ROM, network and RAM disk; FALSE for null.
BOOL VXRDev_GetBootMediaType(DWORD *pBootMedia);
// The kernel (VXR_KRNL_...) that processor count and physical memory call for; 4 GiB and more call for PAE. FALSE, with
// VXR_KRNL_UP stored, when the memory cannot be asked for.
BOOL VXRDev_GetKrnlType(DWORD *pKrnlType);
// The HAL (VXR_HAL_...) by the hardware id of the computer device; VXR_HAL_E_ISA_UP for one that no HAL is known for.
// FALSE, with VXR_HAL_E_ISA_UP stored, when no id can be read.
BOOL VXRDev_GetHalType(DWORD *pHalType);
// Both, the kernel first. `bootMedia` does not influence the result. FALSE when either fails, which then stores what it
// stores above and ends the query, and for null.
BOOL VXRDev_GetArchInfo(DWORD bootMedia, VXR_ARCHITECT *pArch);
