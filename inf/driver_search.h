// The search for a device's driver in INF directories.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

BOOL VXRDev_GetDriverInfDirs(const char *szInfDirs, VXR_DEVICE *pVXRDevice);
// Makes sure that a directory (the product's when none is given) holds a match of `szPattern`, asking the user for
// another when it does not. `szDirOut` (of `size` bytes) gets the directory. FALSE when the user gives up.
BOOL VXRDev_ValidateDir(const char *szPattern, const char *szDirIn, char *szDirOut, DWORD size, DWORD *required);
BOOL VXRDev_GetDriverInfDir(const char *szInfDir, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);
// Names of a directory's INF files as a multi-string; null when it has none.
HeapText VXRDev_GetInfFilesList(const char *szInfDir);
// Whether the file is of the class: its ClassGUID says so, or it has none, or it cannot be read.
BOOL VXRDev_ValidateInfFile(const char *szInfFile, const GUID *pGuid);
// Builds the platform's driver information for the device from one INF file.
BOOL VXRDev_InitDriverInf(const char *szInfFile, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);
// Tries every candidate id over `szInfFiles`, a position within the directory's list.
BOOL VXRDev_LocateDriverInfs(const char *szInfDir, const char *szInfFiles, VXR_DRIVER *pVXRDriver,
                             VXR_DEVICE *pVXRDevice);
BOOL VXRDev_LocateDriverByID(const char *szHardwareID, const char *szInfDir, const char *szInfFiles,
                             VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);
// Looks for the id in one INF file and processes the model line that lists it. With INVALID_HANDLE_VALUE opens and
// closes the file itself. The id must outlive the driver record, which borrows it as szMatchedID.
BOOL VXRDev_LocateDriverInf(HINF hInf, const char *szInfDir, const char *szInfFile, const char *szHardwareID,
                            VXR_DRIVER *pVXRDriver);
