#include "device/class_repair.h"

#include <cstring>

#include "device/records.h"
#include "log/log.h"
#include "registry/values.h"

namespace {

HeapText BracedClassGuid(DWORD deviceType) { return VXRDev_GetGuidStringByType(deviceType, TRUE); }

// A value that every device's key should hold, and what makes its data for a device type.
struct ClassValue {
  const char *name;
  HeapText (*makeData)(DWORD deviceType);
};

constexpr ClassValue kClassValues[] = {{"Class", VXRDev_GetClassStringByType}, {"ClassGUID", BracedClassGuid}};

// Writes the value when it is missing. False when it is missing still.
bool EnsureValue(const char *key, const ClassValue &value, DWORD deviceType, const char *caller) {
  DWORD type = 0, size = 0;
  const HeapText present = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, key, value.name, &type, &size);
  if (present != nullptr) {
    VXRDbg_Log(kFlush, "FLUSH:%s:retrived %s:%s...bypass setting\n", caller, value.name, present.get());
    return true;
  }
  const HeapText data = value.makeData(deviceType);
  if (data == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:missing %s:but failed to set!\n", caller, value.name);
    return false;
  }
  const DWORD dataSize = static_cast<DWORD>(std::strlen(data.get()) + 1);
  if (!VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, key, value.name, data.get(), REG_SZ, dataSize)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRReg_SetRegistryValue(%s\\\\%s:%s) failed!\n", caller, key, value.name, data.get());
    return false;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:missing %s:successfully set to %s\n", caller, value.name, data.get());
  return true;
}

}  // namespace

BOOL VXRDev_FixDevRegistry(DWORD deviceType, const char *szInstanceID) {
  const CallTrace trace = TraceCall();
  if (szInstanceID == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:NULL instance id\n", __func__);
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:check device instance=%s\n", __func__, szInstanceID);
  const HeapText key = VXRReg_GetKeyNameByType(TRUE, VXR_KEY_ENUM, szInstanceID);
  if (key == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:VXRReg_GetKeyNameByType() failed\n", __func__);
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:check device key=%s\n", __func__, key.get());
  for (const ClassValue &value : kClassValues) {
    if (!EnsureValue(key.get(), value, deviceType, __func__)) return FALSE;
  }
  return TRUE;
}
