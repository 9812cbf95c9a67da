// Single registry values, below HKEY_LOCAL_MACHINE, of the running system and of the mounted restored hive.
#pragma once

#include "log/heap.h"

// The key below HKEY_LOCAL_MACHINE at which the restored system's hive is mounted.
#define VXR_RESTORED_HIVE "SYSTEM_ORG"

// Key types: 0 to 5 name keys of the running system, 6 to 11 keys of the hive mounted at SYSTEM_ORG, in its control
// set.
enum : DWORD {
  VXR_KEY_SYSTEM,
  VXR_KEY_CCS,
  VXR_KEY_CLASS,
  VXR_KEY_CRITDEVDB,
  VXR_KEY_SERVICES,
  VXR_KEY_ENUM,
  VXR_KEY_ORG_SYSTEM,
  VXR_KEY_ORG_CCS,
  VXR_KEY_ORG_CLASS,
  VXR_KEY_ORG_CRITDEVDB,
  VXR_KEY_ORG_SERVICES,
  VXR_KEY_ORG_ENUM,
};

// "Current" of the running system's Select key (live) or of the mounted hive's; 1 when it cannot be read or names no
// control set that Windows can have (1 to 999).
DWORD VXRReg_GetControlSetIndex(BOOL live);

// The value's data, with two zero bytes behind the reported size (a stored text may lack its terminator, and texts are
// passed on as multi-strings). `*type` and `*size` get the value's type and its size in bytes. Null, with both 0, when
// it cannot be read; the reason is in the log, and in `*status` when given: what the registry call that failed returned
// (ERROR_FILE_NOT_FOUND: no such key or value), ERROR_INVALID_HANDLE or ERROR_NOT_ENOUGH_MEMORY; ERROR_SUCCESS
// otherwise. An empty value gives a buffer and size 0.
HeapText VXRReg_GetRegistryValue(HKEY root, const char *szKey, const char *szValue, DWORD *type, DWORD *size,
                                 LSTATUS *status = nullptr);

// Writes `size` bytes as they are, a text with its terminator when it is counted in. Creates the key when it does not
// exist. FALSE when the value was not written; the reason is in the log.
BOOL VXRReg_SetRegistryValue(HKEY root, const char *szKey, const char *szValue, const void *data, DWORD type,
                             DWORD size);

// The key path of `type` (VXR_KEY_...), a backslash and `subkey` when given. `live` says whose control-set index is
// read. Null for an unknown type or without memory.
HeapText VXRReg_GetKeyNameByType(BOOL live, DWORD type, const char *subkey);

// Writes one value below the key of `type`, in the mounted hive's control set, + "\" + `szKeyName`. As
// VXRReg_SetRegistryValue otherwise.
BOOL VXRReg_SetRegValueToHive(DWORD type, const char *szKeyName, const char *szValue, const void *data, DWORD dataType,
                              DWORD size);
