// The new boot disk and the controllers above it.
#pragma once

#include "log/heap.h"
#include "vxr/parameters.h"

// Finds the job's boot disk, builds its record and its controllers', and finds (in injection mode installs) their
// drivers. Stores the disk in slot 0 of the block's devices. TRUE when the count of devices changed.
BOOL VXRDev_ScanDiskDevices(VXR_PARABLOCK *pVXRParaBlock);
// Lower-case instance id of a disk by name, or by number when the name is null; null when it is not found.
HeapText VXRDev_GetDiskInstanceID(const char *szDisk, DWORD diskNumber);
// Interface path of the present disk with the named device's storage device number; null when none has it.
HeapText VXRDev_GetDiskDevicePath(const char *szDisk);
BOOL VXRDev_GetStoragetDeviceNumber(const char *szDeviceName, STORAGE_DEVICE_NUMBER *number);
// A complete device record. On success it owns the instance id that `*szInstanceID` held; on failure the caller keeps it.
VXR_DEVICE *VXRDev_GetDeviceByInstanceID(DWORD diskIndex, DWORD deviceType, HeapText *szInstanceID, BOOL bInject);
BOOL VXRDev_InitDevice(DWORD diskIndex, DWORD deviceType, char *szInstanceID, const char *szInfDirs,
                       VXR_DEVICE *pVXRDevice);
// Finds the device among the present devices of its class and fills the record's platform members.
BOOL VXRDev_GetDevInfoData(DWORD deviceType, const char *szInstanceID, VXR_DEVICE *pVXRDevice);
// Instance id of the parent node and its size with terminator; null and 0 when there is none.
HeapText VXRDev_GetParentInstanceID(DWORD hDevInst, DWORD *size);
// The parent of a node as a complete record, with its own bus extender when it is an IDE channel; null when none.
VXR_DEVICE *VXRDev_GetDiskCtrlDevice(DWORD diskIndex, DWORD deviceType, DWORD hDevInst, BOOL bInject);
