// One file mapped read-write.
#pragma once

#include "platform/platform.h"

struct VXR_FILEMAP {
  BOOL Mapped;
  void *Start;  // the file's first byte
  DWORD Size;   // bytes
  DWORD Offset;  // always 0
  HANDLE hMap;
  HANDLE hFile;
  char Name[32];   // of the mapping object
  char File[264];  // path
};
