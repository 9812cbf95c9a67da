// Files in the running and the restored system. VXREng_FileExists is declared in vxrcore/vxrcore.h.
#pragma once

#include "log/heap.h"
#include "vxr/file_map.h"

// Maps a whole file read-write; changes reach the file. The caller frees the record after VXREng_UnmapFile. Null on
// failure, with nothing left open.
HeapPtr<VXR_FILEMAP> VXREng_MapFile(const char *fileName);
// Unmaps, closes and zeroes the record. FALSE for null.
BOOL VXREng_UnmapFile(VXR_FILEMAP *fileMap);
// Copies over an existing target, clearing its read-only, hidden and system attributes first; falls back to the command
// interpreter. TRUE when the target exists afterwards. `flag` is not used.
BOOL VXREng_CopyFile(const char *source, const char *target, BOOL flag);
// FALSE as well when either is null or empty, or when the path does not fit 260 bytes.
BOOL VXREng_FileExistsInDir(const char *directory, const char *name);
