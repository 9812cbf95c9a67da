// The current extension: the facts of the backed-up system, for the restore run.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// Makes an extension current: the image of 80,332 bytes at `header` (the caller's, which must outlive its use), else
// the file that the job's "BMEFile" names, mapped, else a blank image. The job's overrides ("HAL", "OSVerMaj",
// "OSVerMin", "RootPath") are written into the image, so into the caller's memory or the file on disk. `job` is not
// used: the job's key comes from the engine's parameter block.
//
// FALSE, after logging and with no extension current, when the file cannot be mapped, is shorter than an extension, or
// has a wrong magic, or without memory for the blank image. A version other than 1 is accepted.
BOOL VXRExt_Initialize(DWORD job, void *header);
// Whether the magic is the hot or the cold one. FALSE, after logging, for null.
BOOL VXRExt_CheckHeader(const VXR_EXTHEADER *header);
// Releases a mapped file. A host's image or the blank one stays current until the next VXRExt_Initialize, and a host's
// image stays the host's. Always TRUE.
BOOL VXRExt_Cleanup();

// Parts of the current extension; null when there is none. The texts are terminated whatever the image holds: they are
// copies taken when it became current.
const VXR_SYSOSINFO *VXRExt_GetSysOsInfo();
const char *VXRExt_GetSystemPath();
const char *VXRExt_GetWindowsPath();
// VXR_BOOTMEDIA_UNKNOWN when none is current.
DWORD VXRExt_GetBootMedia();
