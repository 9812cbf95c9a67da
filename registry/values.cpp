#include "registry/values.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "log/log.h"
#include "platform/scope_guard.h"

namespace {

struct KeyCloser {
  void operator()(HKEY key) const { platform::RegCloseKey(key); }
};
using OpenedKey = std::unique_ptr<HKEY__, KeyCloser>;

// Windows gives a control set's name three digits.
constexpr DWORD kLastControlSet = 999;

constexpr const char *kKeys[] = {
    "SYSTEM",                                                       // VXR_KEY_SYSTEM
    "SYSTEM\\CurrentControlSet",                                    // VXR_KEY_CCS
    "SYSTEM\\CurrentControlSet\\Control\\Class",                    // VXR_KEY_CLASS
    "SYSTEM\\CurrentControlSet\\Control\\CriticalDeviceDatabase",   // VXR_KEY_CRITDEVDB
    "SYSTEM\\CurrentControlSet\\Services",                          // VXR_KEY_SERVICES
    "SYSTEM\\CurrentControlSet\\ENUM",                              // VXR_KEY_ENUM
    "SYSTEM_ORG",                                                   // VXR_KEY_ORG_SYSTEM
    "SYSTEM_ORG\\ControlSet%03u",                                   // VXR_KEY_ORG_CCS
    "SYSTEM_ORG\\ControlSet%03u\\Control\\Class",                   // VXR_KEY_ORG_CLASS
    "SYSTEM_ORG\\ControlSet%03u\\Control\\CriticalDeviceDatabase",  // VXR_KEY_ORG_CRITDEVDB
    "SYSTEM_ORG\\ControlSet%03u\\Services",                         // VXR_KEY_ORG_SERVICES
    "SYSTEM_ORG\\ControlSet%03u\\ENUM",                             // VXR_KEY_ORG_ENUM
};
static_assert(std::size(kKeys) == VXR_KEY_ORG_ENUM + 1);

// Null after logging why, with the reason in `*status`.
OpenedKey OpenKey(HKEY root, const char *szKey, LSTATUS *status, const char *caller) {
  HKEY key = nullptr;
  const LSTATUS rc = *status = platform::RegOpenKeyA(root, szKey, &key);
  if (rc != ERROR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:RegOpenKey(%s) failed!rc=%d:ec=%d\n", caller, szKey, rc, platform::GetLastError());
    return nullptr;
  }
  if (key == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:RegOpenKey(%s) returned null\n", caller, szKey);
    *status = ERROR_INVALID_HANDLE;
    return nullptr;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:RegOpenKey(%s):hKey=%p...ok\n", caller, szKey, key);
  return OpenedKey(key);
}

// Reads a value of the open key whole; `szKey` is for the log. Null after logging why, with the reason in
// `*status`.
HeapText ReadValue(HKEY key, const char *szKey, const char *szValue, DWORD *type, DWORD *size, LSTATUS *status,
                   const char *caller) {
  DWORD needed = 0;
  LSTATUS rc = *status = platform::RegQueryValueExA(key, szValue, nullptr, type, nullptr, &needed);
  if (rc != ERROR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:RegQueryValueEx(%s\\%s) failed for size !rc=%d ec=%d\n", caller, szKey, szValue, rc,
               platform::GetLastError());
    return nullptr;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:RegQueryValue():needs %u bytes for data of type %u\n", caller, needed, *type);
  HeapText data = AllocTextUnlogged(SIZE_T{needed} + 2);
  if (data == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:HeapAlloc() failed for %u bytes!ec=%d\n", caller, needed, platform::GetLastError());
    *status = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:HeapAlloc():%u bytes buffer allocated at %p\n", caller, needed, data.get());
  *size = needed;
  rc = *status = platform::RegQueryValueExA(key, szValue, nullptr, type, reinterpret_cast<BYTE *>(data.get()), size);
  if (rc != ERROR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:RegQueryValue(%s\\%s) failed!rc=%d ec=%d\n", caller, szKey, szValue, rc,
               platform::GetLastError());
    return nullptr;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:Successfully retrieved %u bytes data for %s\\%s as type %u at buffer %p\n", caller,
             *size, szKey, szValue, *type, data.get());
  return data;
}

// Opens the key, or creates it. Null after logging why.
OpenedKey OpenOrCreateKey(HKEY root, const char *szKey, const char *caller) {
  HKEY key = nullptr;
  if (platform::RegOpenKeyA(root, szKey, &key) != ERROR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:RegOpenKey(%s) failed!create it...\n", caller, szKey);
    const LSTATUS rc = platform::RegCreateKeyA(root, szKey, &key);
    if (rc != ERROR_SUCCESS) {
      VXRDbg_Log(kError, "ERROR:%s:RegCreateKey(%s) failed!rc=%d ec=%d\n", caller, szKey, rc, platform::GetLastError());
      return nullptr;
    }
  }
  if (key == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:hKey is NULL\n", caller);
    return nullptr;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:RegOpenKey(%s):hKey=%p...ok\n", caller, szKey, key);
  return OpenedKey(key);
}

}  // namespace

DWORD VXRReg_GetControlSetIndex(BOOL live) {
  const CallTrace trace = TraceCall();
  DWORD type = 0, size = 0, index = 1;
  const HeapText data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, live ? "SYSTEM\\Select" : "SYSTEM_ORG\\Select",
                                                "Current", &type, &size);
  if (data == nullptr || size < sizeof index) return 1;
  std::memcpy(&index, data.get(), sizeof index);
  if (index >= 1 && index <= kLastControlSet) return index;
  VXRDbg_Log(kWarning, "WARNG:%s:Current=%u is no control set, 1 is used\n", __func__, index);
  return 1;
}

HeapText VXRReg_GetRegistryValue(HKEY root, const char *szKey, const char *szValue, DWORD *type, DWORD *size,
                                 LSTATUS *status) {
  const CallTrace trace = TraceCall();
  *type = 0;
  *size = 0;
  VXRDbg_Log(kFlush, "FLUSH:%s:hRoot=%p:szKey=%s:szValue=%s\n", __func__, root, szKey, szValue);
  HeapText data;
  LSTATUS rc = ERROR_SUCCESS;
  if (const OpenedKey key = OpenKey(root, szKey, &rc, __func__); key != nullptr) {
    data = ReadValue(key.get(), szKey, szValue, type, size, &rc, __func__);
  }
  if (status != nullptr) *status = rc;
  if (data == nullptr) *type = *size = 0;
  VXRDbg_Log(kFlush, "FLUSH:%s:_LEAVE_:return=%p:type=%x:size=%u\n", __func__, data.get(), *type, *size);
  return data;
}

BOOL VXRReg_SetRegistryValue(HKEY root, const char *szKey, const char *szValue, const void *data, DWORD type,
                             DWORD size) {
  const CallTrace trace = TraceCall();
  const char *const function = __func__;
  const ScopeGuard leave([=] { VXRDbg_Log(kFlush, "FLUSH:%s:_LEAVE_\n", function); });
  VXRDbg_Log(kFlush, "FLUSH:%s:hRoot=%p:szKey=%s:szValue=%s\n", __func__, root, szKey, szValue);
  const OpenedKey key = OpenOrCreateKey(root, szKey, __func__);
  if (key == nullptr) return FALSE;
  const LSTATUS rc = platform::RegSetValueExA(key.get(), szValue, 0, type, static_cast<const BYTE *>(data), size);
  if (rc != ERROR_SUCCESS) {
    VXRDbg_Log(kError, "ERROR:%s:RegSetValueEx(%s\\%s) failed!rc=%d ec=%d\n", __func__, szKey, szValue, rc,
               platform::GetLastError());
    return FALSE;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:Successfully set %u bytes data for %s\\%s as type %u at buffer %p\n", __func__, size,
             szKey, szValue, type, data);
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
  VXRDbg_Log(kFlush, "FLUSH:%s:szKeyName=%s:val=%s:type=%x:size=%d:pdata=%p\n", __func__, szKeyName, szValue, dataType,
             size, data);
  BOOL written = FALSE;
  const HeapText szKey = VXRReg_GetKeyNameByType(FALSE, type, szKeyName);
  if (szKey == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:VXRReg_GetKeyNameByType(type=%d)\n", __func__, type);
  } else {
    VXRDbg_Log(kFlush, "FLUSH:%s:szKey=%s\n", __func__, szKey.get());
    written = VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, szKey.get(), szValue, data, dataType, size);
    if (written) {
      VXRDbg_Log(kFlush, "FLUSH:%s:successful:szKeyName=%s:val=%s:type=%x:size=%d:pdata=%p\n", __func__, szKeyName,
                 szValue, dataType, size, data);
    } else {
      VXRDbg_Log(kError, "ERROR:%s:VXRReg_SetRegistryValue(%s\\%s)\n", __func__, szKey.get(), szValue);
    }
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:_LEAVE_\n", __func__);
  return written;
}
