// One file mapped read-write, from its start to its end. Made by VXREng_MapFile (engine/base/files.h) on the process
// heap; after VXREng_UnmapFile, which zeroes it, its owner frees it.
#pragma once

#include "platform/platform.h"

struct VXR_FILEMAP {
  BOOL Mapped;   // TRUE once the view exists
  void *Start;   // the file's first byte
  DWORD Size;    // bytes
  DWORD Offset;  // always 0
  HANDLE hMap;
  HANDLE hFile;    // INVALID_HANDLE_VALUE when none is open
  char Name[32];   // of the mapping object
  char File[264];  // path
};
