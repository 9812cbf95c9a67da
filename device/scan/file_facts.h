// Facts of a file of the running system: path, times, size, and the texts of its version resource.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// Fills the record from the file named `szFile`, directly behind `szDirectory` when that is given. `szSection`, when
// given, is recorded with it. FALSE, after logging, when the attributes cannot be read (the record is then as it was)
// and, without a word for a file that has none, when the version resource cannot be; the attributes' facts then stay.
BOOL VXRDev_GetVXRFileInfo(const char *szFile, const char *szDirectory, const char *szSection,
                           VXR_FILEINFO *pVXRDrvFile);

// A text of the version block in the language and code page at `*pCodePage` (one 16-bit number each): points into the
// block, with its length in `*length`. Null with length 0 when the block has no such text, or (logged) for a null
// argument or without memory.
const char *VXRDev_GetFileVersionField(const void *pVerInfo, const char *szField, UINT *length, const WORD *pCodePage);
