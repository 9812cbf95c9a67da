// The directories and files that the restore-time code works with, by id.
//
// Three sources: the running system and the product (from the parameter block), the restored system (the directories
// that the extension records, on the drive where the restored volume is reachable now), and the restore job.
#pragma once

#include "log/heap.h"

enum : DWORD {
  VXR_DIR_RLMINF = 0,      // restore job's INF directory
  VXR_DIR_VXRDRV = 1,      // driver directory of the product
  VXR_FILE_REGIMPORT = 2,  // name ignored
  VXR_FILE_DKPART = 3,     // name ignored
  VXR_DIR_PRODUCT = 5,
  VXR_DIR_WININF = 6,  // restored system: inf, drivers, config, system directory
  VXR_DIR_WINDRV = 7,
  VXR_DIR_WINCFG = 8,
  VXR_DIR_WINSYS = 9,
  VXR_DIR_WPEINF = 10,  // running system: inf, drivers, system directory
  VXR_DIR_WPEDRV = 11,
  VXR_DIR_WPESYS = 12,
  VXR_STR_SERVICES = 13,  // "<name>.Services"; nothing without a name
};

// The path for `id`, with a backslash and `name` appended when a name is given. Two zero bytes follow the text, so that
// it may be passed on as a multi-string. Null, after logging, for an unknown id, without a parameter block, for id 0
// without restore settings, for ids 6 to 9 without an extension (or with one that records no directory), for id 13
// without a name, or without memory.
HeapText VXREng_GetStringAs(DWORD id, const char *name);
