// What a model line's installation asks for: files copied into the restored system, a service written into its hive.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

BOOL VXRDev_ProcessModSect(HINF hInf, const char *szInfDir, const char *szModSect, const char *szDecoration,
                           const char *szHardwareID, VXR_DRIVER *pVXRDriver);
BOOL VXRDev_ProcessInstSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver);
BOOL VXRDev_ProcessCopyFiles(HINF hInf, const char *szInfDir, char *szSection, VXR_DRIVER *pVXRDriver);
BOOL VXRDev_ProcessCopySect(HINF hInf, const char *szInfDir, const char *szSection, VXR_DRIVER *pVXRDriver);
// Turns `szFileName` to upper case in place.
BOOL VXRDev_ProcessCopyFile(HINF hInf, const char *szInfDir, char *szFileName, VXR_DRIVER *pVXRDriver);
BOOL VXRDev_ProcessAddReg(HINF hInf, const char *szInfDir, const char *szSection, DWORD uiHKRType);
BOOL VXRDev_ProcessSrvcSect(HINF hInf, const char *szInfDir, const char *szInstSect, const char *szDecoration,
                            VXR_DRIVER *pVXRDriver);
BOOL VXRDev_ProcessSrvcInst(HINF hInf, const char *szInfDir, const char *szService, const char *szSrvcInst);
// The image path with its directory replaced by system32\drivers; takes the given path over. Null for null.
HeapText VXRDev_FixSystemPath(HeapText szImage);
