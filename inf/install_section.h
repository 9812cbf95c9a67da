// What a model line's installation asks for: files copied into the restored system, a service written into its hive.
//
// The driver's bInject decides: TRUE copies and writes, at once and for good (a later failure undoes nothing); FALSE
// checks that each source file and the service section are there and changes nothing outside the driver record.
// Everything else that an INF file can ask for is passed over or, when unknown, refused as a corrupted file.
// Results are TRUE or FALSE; every failure is logged. A key matches a keyword that it begins with.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

// Where an AddReg section is named, which says what its HKR would be.
inline constexpr DWORD kInstallRoot = 0;
inline constexpr DWORD kServiceRoot = 2;

// How a log line names a decoration, or its absence.
inline const char *DecorationName(const char *szDecoration) { return szDecoration != nullptr ? szDecoration : "NULL"; }

// Walks a model section (with the decoration, else plain) for the lines that list the id from field 2 on, and installs
// the first that can be. TRUE when one was. `szDecoration` may be null. Sets the driver's szMatchedID, which borrows
// the id, and szService, both even when a later step fails.
BOOL VXRDev_ProcessModSect(HINF hInf, const char *szInfDir, const char *szModSect, const char *szDecoration,
                           const char *szHardwareID, VXR_DRIVER *pVXRDriver);

// Carries out an install section, found under the decoration, those of the driver's device, or none. FALSE at the first
// line that fails, for an unknown directive, and when there is no such section.
BOOL VXRDev_ProcessInstSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver);

// One value of a CopyFiles line: @file, or the name of a copy section.
BOOL VXRDev_ProcessCopyFiles(HINF hInf, const char *szInfDir, char *szSection, VXR_DRIVER *pVXRDriver);

// The files of one copy section, by their destination names; a different source name is not supported and only logged.
// FALSE at the first file that fails, and when there is no such section.
BOOL VXRDev_ProcessCopySect(HINF hInf, const char *szInfDir, const char *szSection, VXR_DRIVER *pVXRDriver);

// Copies one file, or checks that it is there. Turns `szFileName` to upper case in place. The name's ending decides the
// directory; the file comes from `szInfDir`, or from the running system's directory of that kind when `szInfDir` is its
// INF directory. FALSE with status 11 when the source is missing or the name is more than a plain file name, with
// status 13 when the copy fails.
BOOL VXRDev_ProcessCopyFile(HINF hInf, const char *szInfDir, char *szFileName, VXR_DRIVER *pVXRDriver);

// Walks an AddReg section; nothing is ever written. `uiHKRType`: 0 from an install section, which is passed over, 2
// from a service-install section, which must exist.
BOOL VXRDev_ProcessAddReg(HINF hInf, const char *szInfDir, const char *szSection, DWORD uiHKRType);

// The service section of an install section: its first complete AddService line, whose service name goes to the
// driver's szService. FALSE when there is none.
BOOL VXRDev_ProcessSrvcSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver);

// Writes the values of a service-install section below the service's key in the restored hive. The last line decides.
BOOL VXRDev_ProcessSrvcInst(HINF hInf, const char *szInfDir, const char *szService, const char *szSrvcInst);

// The image path with its directory replaced by system32\drivers; takes the given path over. Unchanged without a
// directory or memory; null for null.
HeapText VXRDev_FixSystemPath(HeapText szImage);
