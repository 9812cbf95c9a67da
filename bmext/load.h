// The current extension: the facts of the backed-up system, for the restore run.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// Makes current the image at `header` (the caller's, changed in place by the job's overrides), else the file that the
// job names, else a blank image. FALSE, with no extension current, when the file cannot be mapped, is shorter than an
// extension, or has a wrong magic.
BOOL VXRExt_Initialize(DWORD job, void *header);
BOOL VXRExt_CheckHeader(const VXR_EXTHEADER *header);
// Releases a mapped file. A host's image stays current, and stays the host's.
BOOL VXRExt_Cleanup();

// Parts of the current extension; null when there is none. Texts are terminated inside their field.
const VXR_SYSOSINFO *VXRExt_GetSysOsInfo();
const char *VXRExt_GetSystemPath();
const char *VXRExt_GetWindowsPath();
// VXR_BOOTMEDIA_UNKNOWN when none is current.
DWORD VXRExt_GetBootMedia();
