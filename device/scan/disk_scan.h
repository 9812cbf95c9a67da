// The new boot disk and the controllers above it.
#pragma once

#include "log/heap.h"
#include "vxr/parameters.h"

// Finds the job's boot disk, builds its record and its controllers', and finds (in injection mode installs) their
// drivers. Stores the disk in slot 0 of the block's devices; devices that the block held before are released. TRUE when
// the count of devices changed. A disk or controller without a driver sets the run's result to 3 by a status line; a
// controller that cannot be built leaves the disk recorded without it.
BOOL VXRDev_ScanDiskDevices(VXR_PARABLOCK *pVXRParaBlock);

// A complete device record, which the caller releases by VXRDev_FreeDevice. On success it owns the instance id that
// `*szInstanceID` held; on failure (null, logged) the caller keeps it.
VXR_DEVICE *VXRDev_GetDeviceByInstanceID(DWORD diskIndex, DWORD deviceType, HeapText *szInstanceID, BOOL bInject);
// Fills the record and finds its driver. Sets the record's `szInstanceID` to the given text, also when the driver
// search then fails; the caller says who owns it.
BOOL VXRDev_InitDevice(DWORD diskIndex, DWORD deviceType, char *szInstanceID, const char *szInfDirs,
                       VXR_DEVICE *pVXRDevice);
// Finds the first present device of the type's class (of all classes for VXR_DEVTYPE_UNKNOWN) whose id begins with
// `szInstanceID`, without regard to case, and fills `iDevEnum`, `hDevInst`, `guDevice`, `szHardwareID` and
// `szCompatibleIDs` of the record, which is new. FALSE, after logging, when there is none.
BOOL VXRDev_GetDevInfoData(DWORD deviceType, const char *szInstanceID, VXR_DEVICE *pVXRDevice);
// Instance id of the parent node and its size with terminator; null and 0, after logging, when there is none.
HeapText VXRDev_GetParentInstanceID(DWORD hDevInst, DWORD *size);
// The parent of a node as a complete record, with its own bus extender linked above it when it is an IDE channel. Null
// when it cannot be built; a status line with code 3 then names the parent, or "N/A" when not even its id is known.
VXR_DEVICE *VXRDev_GetDiskCtrlDevice(DWORD diskIndex, DWORD deviceType, DWORD hDevInst, BOOL bInject);
