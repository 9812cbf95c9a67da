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
bool EnsureValue(const char *key, const ClassValue &value, DWORD deviceType, const Caller &trace) {
  DWORD type = 0, size = 0;
  const HeapText present = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, key, value.name, &type, &size);
  if (present != nullptr) {
    trace.Flush("retrived %s:%s...bypass setting\n", value.name, present.get());
    return true;
  }
  const HeapText data = value.makeData(deviceType);
  if (data == nullptr) {
    trace.Error("missing %s:but failed to set!\n", value.name);
    return false;
  }
  const DWORD dataSize = static_cast<DWORD>(std::strlen(data.get()) + 1);
  if (!VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, key, value.name, data.get(), REG_SZ, dataSize)) {
    trace.Error("VXRReg_SetRegistryValue(%s\\\\%s:%s) failed!\n", key, value.name, data.get());
    return false;
  }
  trace.Check("missing %s:successfully set to %s\n", value.name, data.get());
  return true;
}

}  // namespace

BOOL VXRDev_FixDevRegistry(DWORD deviceType, const char *szInstanceID) {
  const CallTrace trace = TraceCall();
  if (szInstanceID == nullptr) {
    trace.Error("NULL instance id\n");
    return FALSE;
  }
  trace.Check("check device instance=%s\n", szInstanceID);
  const HeapText key = VXRReg_GetKeyNameByType(TRUE, VXR_KEY_ENUM, szInstanceID);
  if (key == nullptr) {
    trace.Error("VXRReg_GetKeyNameByType() failed\n");
    return FALSE;
  }
  trace.Check("check device key=%s\n", key.get());
  for (const ClassValue &value : kClassValues) {
    if (!EnsureValue(key.get(), value, deviceType, trace)) return FALSE;
  }
  return TRUE;
}
