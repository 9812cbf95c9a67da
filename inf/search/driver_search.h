// The search for a device's driver in INF directories.
//
// It is nested, and the first success at any level ends every level above it: directories; INF files of a directory, by
// class and by the platform's verdict that they drive the device; candidate ids; for each of them the INF files from
// the current one on; manufacturers; decorations of the restored system; model lines (inf/install_section.h). Results
// are TRUE or FALSE; every failure is logged.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

// Finds the device's driver in a multi-string of directories, in injection mode also registers it. The device owns the
// driver record from its allocation on, whatever the outcome. A disk needs no driver: TRUE at once, without a record.
// FALSE when no directory has one, and as soon as a directory has no INF file and the user names no other.
BOOL VXRDev_GetDriverInfDirs(const char *szInfDirs, VXR_DEVICE *pVXRDevice);

// Makes sure that a directory (the product's when none or an empty one is given) holds a match of `szPattern`, asking
// the user for another when it does not. `szDirOut`, of `size` bytes, gets the directory; `required` (optional) the
// size that the user's answer needs. FALSE when the user gives up (status 15 when the cancellation is confirmed), when
// the prompt or the question behind it fails, and when the directory does not fit the buffer.
BOOL VXRDev_ValidateDir(const char *szPattern, const char *szDirIn, char *szDirOut, DWORD size, DWORD *required);

// Searches one directory. On success the driver record holds the platform's driver information, the service and the
// matched id; an INF file that is given up leaves none of the first and the last.
BOOL VXRDev_GetDriverInfDir(const char *szInfDir, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);

// Names of a directory's INF files as a multi-string, the caller's; null when it has none, cannot be read, or without
// memory.
HeapText VXRDev_GetInfFilesList(const char *szInfDir);

// Whether the file is of the class: its ClassGUID says so, or it has none, or it cannot be read.
BOOL VXRDev_ValidateInfFile(const char *szInfFile, const GUID *pGuid);

// Builds the platform's driver information for the device from one INF file into the driver record, which owns it.
// FALSE, with the record as it was, when the file has no driver for the device.
BOOL VXRDev_InitDriverInf(const char *szInfFile, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);

// Tries every candidate id over `szInfFiles`, a position within the directory's list: the platform driver's ids, then
// the hardware ids and the compatible ids of the driver's device.
BOOL VXRDev_LocateDriverInfs(const char *szInfDir, const char *szInfFiles, VXR_DRIVER *pVXRDriver,
                             VXR_DEVICE *pVXRDevice);

// Looks for one id in the INF files of the device's class from that position on. A path beyond 259 characters is
// refused with a log line and the next file is tried.
BOOL VXRDev_LocateDriverByID(const char *szHardwareID, const char *szInfDir, const char *szInfFiles,
                             VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);

// Looks for the id in one INF file and processes the model line that lists it. With INVALID_HANDLE_VALUE opens and
// closes the file itself; a handle that is given stays open. The driver's device must have decorations. The record
// borrows the id as szMatchedID, so the id must stay until the record is released or searched for anew.
BOOL VXRDev_LocateDriverInf(HINF hInf, const char *szInfDir, const char *szInfFile, const char *szHardwareID,
                            VXR_DRIVER *pVXRDriver);
