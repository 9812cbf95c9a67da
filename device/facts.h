// Facts about the running machine.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// VXR_BOOTMEDIA_...; FALSE when it is unknown.
BOOL VXRDev_GetBootMediaType(DWORD *pBootMedia);
// VXR_KRNL_... by processor count and memory.
BOOL VXRDev_GetKrnlType(DWORD *pKrnlType);
// VXR_HAL_... by the computer device's hardware id; FALSE when that cannot be read.
BOOL VXRDev_GetHalType(DWORD *pHalType);
// Both; `bootMedia` does not influence the result.
BOOL VXRDev_GetArchInfo(DWORD bootMedia, VXR_ARCHITECT *pArch);
