// Files in the running and the restored system. VXREng_FileExists is declared in vxrcore/vxrcore.h.
#pragma once

#include <memory>

#include "log/heap.h"
#include "vxr/file_map.h"

struct FileCloser {
  void operator()(void *file) const { platform::CloseHandle(file); }
};
// A file, disk or volume that is open; null when it could not be opened.
using OpenedFile = std::unique_ptr<void, FileCloser>;

// Opens it with the arguments of CreateFileA; null after that call's failure line, with the name for its message.
OpenedFile OpenLogged(const char *name, DWORD access, DWORD share, DWORD disposition,
                      const Caller &trace = {__builtin_FUNCTION()});

// Maps a whole existing file read-write; changes made through the view reach the file. The caller frees the record
// after VXREng_UnmapFile. Null, after one error line and with nothing left open, when the name is null or does not fit
// the record, or the file is missing, empty or not writable.
HeapPtr<VXR_FILEMAP> VXREng_MapFile(const char *fileName);
// Unmaps, closes and zeroes the record, which stays its owner's. FALSE for null.
BOOL VXREng_UnmapFile(VXR_FILEMAP *fileMap);
// Copies over an existing target, clearing its read-only, hidden and system attributes first; falls back to the command
// interpreter. TRUE when the target exists afterwards, even when it is an old one that no copy could replace. `flag` is
// not used.
BOOL VXREng_CopyFile(const char *source, const char *target, BOOL flag);
// The same, but TRUE only when the target is the copy.
BOOL VXREng_ReplaceFile(const char *source, const char *target);
// VXREng_FileExists of the file in the directory. FALSE as well when either is null or empty, or (logged) when the path
// does not fit 260 bytes.
BOOL VXREng_FileExistsInDir(const char *directory, const char *name);
