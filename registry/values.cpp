#include "registry/values.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "log/log.h"
#include "platform/scope_guard.h"
#include "registry/opened_key.h"
#include "vxrcore/events.h"

namespace {

// Windows gives a control set's name three digits.
constexpr DWORD kLastControlSet = 999;

constexpr const char *kKeys[] = {
    "SYSTEM",                                                               // VXR_KEY_SYSTEM
    "SYSTEM\\CurrentControlSet",                                            // VXR_KEY_CCS
    "SYSTEM\\CurrentControlSet\\Control\\Class",                            // VXR_KEY_CLASS
    "SYSTEM\\CurrentControlSet\\Control\\CriticalDeviceDatabase",           // VXR_KEY_CRITDEVDB
    "SYSTEM\\CurrentControlSet\\Services",                                  // VXR_KEY_SERVICES
    "SYSTEM\\CurrentControlSet\\ENUM",                                      // VXR_KEY_ENUM
    VXR_RESTORED_HIVE,                                                      // VXR_KEY_ORG_SYSTEM
    VXR_RESTORED_HIVE "\\ControlSet%03u",                                   // VXR_KEY_ORG_CCS
    VXR_RESTORED_HIVE "\\ControlSet%03u\\Control\\Class",                   // VXR_KEY_ORG_CLASS
    VXR_RESTORED_HIVE "\\ControlSet%03u\\Control\\CriticalDeviceDatabase",  // VXR_KEY_ORG_CRITDEVDB
    VXR_RESTORED_HIVE "\\ControlSet%03u\\Services",                         // VXR_KEY_ORG_SERVICES
    VXR_RESTORED_HIVE "\\ControlSet%03u\\ENUM",                             // VXR_KEY_ORG_ENUM
};
static_assert(std::size(kKeys) == VXR_KEY_ORG_ENUM + 1);

// Null after logging why, with the reason in `*status`.
OpenedKey OpenKey(HKEY root, const char *szKey, LSTATUS *status, const Caller &trace) {
  HKEY key = nullptr;
  const LSTATUS rc = *status = platform::RegOpenKeyA(root, szKey, &key);
  if (rc != ERROR_SUCCESS) {
    trace.Error("RegOpenKey(%s) failed!rc=%d:ec=%d\n", szKey, rc, platform::GetLastError());
    return nullptr;
  }
  if (key == nullptr) {
    trace.Error("RegOpenKey(%s) returned null\n", szKey);
    *status = ERROR_INVALID_HANDLE;
    return nullptr;
  }
  trace.Flush("RegOpenKey(%s):hKey=%p...ok\n", szKey, key);
  return OpenedKey(key);
}

// Reads a value of the open key whole; `szKey` is for the log. Null after logging why, with the reason in
// `*status`.
HeapText ReadValue(HKEY key, const char *szKey, const char *szValue, DWORD *type, DWORD *size, LSTATUS *status,
                   const Caller &trace) {
  DWORD needed = 0;
  LSTATUS rc = *status = platform::RegQueryValueExA(key, szValue, nullptr, type, nullptr, &needed);
  if (rc != ERROR_SUCCESS) {
    trace.Error("RegQueryValueEx(%s\\%s) failed for size !rc=%d ec=%d\n", szKey, szValue, rc, platform::GetLastError());
    platform::ReportDecision(VXRMACHINE_VALUE_NOT_READ, szKey, szValue, static_cast<DWORD>(rc));
    return nullptr;
  }
  trace.Flush("RegQueryValue():needs %u bytes for data of type %u\n", needed, *type);
  HeapText data = AllocTextUnlogged(SIZE_T{needed} + 2);
  if (data == nullptr) {
    trace.Error("HeapAlloc() failed for %u bytes!ec=%d\n", needed, platform::GetLastError());
    *status = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
  }
  trace.Flush("HeapAlloc():%u bytes buffer allocated at %p\n", needed, data.get());
  *size = needed;
  rc = *status = platform::RegQueryValueExA(key, szValue, nullptr, type, reinterpret_cast<BYTE *>(data.get()), size);
  if (rc != ERROR_SUCCESS) {
    trace.Error("RegQueryValue(%s\\%s) failed!rc=%d ec=%d\n", szKey, szValue, rc, platform::GetLastError());
    platform::ReportDecision(VXRMACHINE_VALUE_NOT_READ, szKey, szValue, static_cast<DWORD>(rc));
    return nullptr;
  }
  trace.Flush("Successfully retrieved %u bytes data for %s\\%s as type %u at buffer %p\n", *size, szKey, szValue, *type,
              data.get());
  return data;
}

// Opens the key, or creates it. Null after logging why.
OpenedKey OpenOrCreateKey(HKEY root, const char *szKey, const Caller &trace) {
  HKEY key = nullptr;
  if (platform::RegOpenKeyA(root, szKey, &key) != ERROR_SUCCESS) {
    trace.Error("RegOpenKey(%s) failed!create it...\n", szKey);
    platform::ReportDecision(VXRMACHINE_KEY_MISSING, szKey);
    const LSTATUS rc = platform::RegCreateKeyA(root, szKey, &key);
    if (rc != ERROR_SUCCESS) {
      trace.Error("RegCreateKey(%s) failed!rc=%d ec=%d\n", szKey, rc, platform::GetLastError());
      return nullptr;
    }
  }
  if (key == nullptr) {
    trace.Error("hKey is NULL\n");
    return nullptr;
  }
  trace.Flush("RegOpenKey(%s):hKey=%p...ok\n", szKey, key);
  return OpenedKey(key);
}

}  // namespace

DWORD VXRReg_GetControlSetIndex(BOOL live) {
  const CallTrace trace = TraceCall();
  DWORD type = 0, size = 0, index = 1;
  const HeapText data = VXRReg_GetRegistryValue(
      HKEY_LOCAL_MACHINE, live ? "SYSTEM\\Select" : VXR_RESTORED_HIVE "\\Select", "Current", &type, &size);
  if (data == nullptr || size < sizeof index) return 1;
  std::memcpy(&index, data.get(), sizeof index);
  if (index >= 1 && index <= kLastControlSet) return index;
  trace.Warning("Current=%u is no control set, 1 is used\n", index);
  return 1;
}

HeapText VXRReg_GetRegistryValue(HKEY root, const char *szKey, const char *szValue, DWORD *type, DWORD *size,
                                 LSTATUS *status) {
  const CallTrace trace = TraceCall();
  *type = 0;
  *size = 0;
  trace.Flush("hRoot=%p:szKey=%s:szValue=%s\n", root, szKey, szValue);
  HeapText data;
  LSTATUS rc = ERROR_SUCCESS;
  if (const OpenedKey key = OpenKey(root, szKey, &rc, trace); key != nullptr) {
    data = ReadValue(key.get(), szKey, szValue, type, size, &rc, trace);
  }
  if (status != nullptr) *status = rc;
  if (data == nullptr) *type = *size = 0;
  trace.Flush("_LEAVE_:return=%p:type=%x:size=%u\n", data.get(), *type, *size);
  return data;
}

BOOL VXRReg_SetRegistryValue(HKEY root, const char *szKey, const char *szValue, const void *data, DWORD type,
                             DWORD size) {
  const CallTrace trace = TraceCall();
  const ScopeGuard leave([&] { trace.Flush("_LEAVE_\n"); });
  trace.Flush("hRoot=%p:szKey=%s:szValue=%s\n", root, szKey, szValue);
  const OpenedKey key = OpenOrCreateKey(root, szKey, trace);
  if (key == nullptr) return FALSE;
  const LSTATUS rc = platform::RegSetValueExA(key.get(), szValue, 0, type, static_cast<const BYTE *>(data), size);
  if (rc != ERROR_SUCCESS) {
    trace.Error("RegSetValueEx(%s\\%s) failed!rc=%d ec=%d\n", szKey, szValue, rc, platform::GetLastError());
    return FALSE;
  }
  trace.Flush("Successfully set %u bytes data for %s\\%s as type %u at buffer %p\n", size, szKey, szValue, type, data);
  return TRUE;
}

HeapText VXRReg_GetKeyNameByType(BOOL live, DWORD type, const char *subkey) {
  const CallTrace trace = TraceCall();
  const DWORD index = VXRReg_GetControlSetIndex(live);
  if (type >= std::size(kKeys)) return nullptr;
  char key[128];
  std::snprintf(key, sizeof key, kKeys[type], index);
  const SIZE_T size = std::strlen(key) + (subkey != nullptr ? 1 + std::strlen(subkey) : 0) + 1;
  HeapText text = AllocText(size, "szKey");
  if (text == nullptr) return nullptr;
  std::snprintf(text.get(), size, "%s%s%s", key, subkey != nullptr ? "\\" : "", subkey != nullptr ? subkey : "");
  return text;
}

BOOL VXRReg_SetRegValueToHive(DWORD type, const char *szKeyName, const char *szValue, const void *data, DWORD dataType,
                              DWORD size) {
  const CallTrace trace = TraceCall();
  trace.Flush("szKeyName=%s:val=%s:type=%x:size=%d:pdata=%p\n", szKeyName, szValue, dataType, size, data);
  BOOL written = FALSE;
  const HeapText szKey = VXRReg_GetKeyNameByType(FALSE, type, szKeyName);
  if (szKey == nullptr) {
    trace.Error("VXRReg_GetKeyNameByType(type=%d)\n", type);
  } else {
    trace.Flush("szKey=%s\n", szKey.get());
    written = VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, szKey.get(), szValue, data, dataType, size);
    if (written) {
      trace.Flush("successful:szKeyName=%s:val=%s:type=%x:size=%d:pdata=%p\n", szKeyName, szValue, dataType, size,
                  data);
    } else {
      trace.Error("VXRReg_SetRegistryValue(%s\\%s)\n", szKey.get(), szValue);
    }
  }
  trace.Flush("_LEAVE_\n");
  return written;
}
