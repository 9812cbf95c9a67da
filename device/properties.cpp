#include "device/properties.h"

#include "device/records.h"
#include "log/dump.h"
#include "log/log.h"

namespace {

constexpr char kPropertyCall[] = "SetupDiGetDeviceRegistryProperty";

constexpr SIZE_T kTerminators = 2;  // bytes behind a property, which may lack its own

// The property's size in bytes, its type in `*type`; 0 after a log line when it cannot be had.
DWORD PropertySize(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, const char *caller) {
  DWORD size = 0;
  if (!platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, type, nullptr, 0, &size) &&
      platform::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    LogFailure(kPropertyCall, "failed to get size!", caller);
    return 0;
  }
  if (size == 0) LogFailure(kPropertyCall, "returned 0 bytes as size", caller);
  return size;
}

HeapText ReadProperty(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, DWORD *size,
                      const char *caller) {
  const DWORD needed = PropertySize(set, device, property, type, caller);
  if (needed == 0) return nullptr;
  VXRDbg_Log(kFlush, "FLUSH:%s:SetupDiGetDeviceRegistryProperty():prop %x as type %x needs %d bytes!\n", caller,
             property, *type, needed);
  HeapText value = AllocText(needed, "pPropBuf", caller, kTerminators);
  if (value == nullptr) return nullptr;
  if (!platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, type, reinterpret_cast<BYTE *>(value.get()),
                                                   needed, size)) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetDeviceRegistryProperty(Prop=%X):ec=0x%08x:failed to query!\n", caller,
               property, platform::GetLastError());
    return nullptr;
  }
  return value;
}

// The property of the device at `index` of an open set.
HeapText ReadPropertyAt(HDEVINFO set, DWORD index, DWORD property, DWORD *size, DWORD *type, const char *caller) {
  VXRDbg_Log(kCheck, "CHECK:%s:retrieved device info set handle=%p...\n", caller, set);
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  if (!platform::SetupDiEnumDeviceInfo(set, index, &device)) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiEnumDeviceInfo() failed for index=%d!ec=0x%08x\n", caller, index,
               platform::GetLastError());
    return nullptr;
  }
  HeapText value = VXRDev_GetRegPropByDevInfo(set, &device, property, type, size);
  if (value == nullptr) VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetRegPropByDevInfo() failed!\n", caller);
  return value;
}

bool IsSet(HDEVINFO handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

}  // namespace

HeapText VXRDev_GetRegPropByDevInfo(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, DWORD property, DWORD *type,
                                    DWORD *size) {
  const CallTrace trace = TraceCall();
  *type = 0;
  *size = 0;
  if (pDevInfoData == nullptr) {
    LogNull("pDevInfoData");
    return nullptr;
  }
  if (!IsSet(hDevInfo)) {
    VXRDbg_Log(kError, "ERROR:%s:hDevInfo is INVALID_HANDLE_VALUE\n", __func__);
    return nullptr;
  }
  HeapText value = ReadProperty(hDevInfo, pDevInfoData, property, type, size, __func__);
  if (value == nullptr) {
    *type = 0;
    *size = 0;
  }
  return value;
}

HeapText VXRDev_GetRegProperty(HDEVINFO hDevInfo, const GUID *classGuid, DWORD index, DWORD property, DWORD *size,
                               DWORD *type) {
  const CallTrace trace = TraceCall();
  *size = 0;
  *type = 0;
  if (classGuid == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:NULL GUID!\n", __func__);
    return nullptr;
  }
  VXRDbg_DumpGuid(classGuid, __func__);
  if (property >= kPropertyLimit) {
    VXRDbg_Log(kError, "ERROR:%s:Prop=%X > SPDRP_MAXIMUM_PROPERTY!\n", __func__, property);
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:retrieving %s\n", __func__, VXRDbg_GetPropertyName(property));
  if (IsSet(hDevInfo)) return ReadPropertyAt(hDevInfo, index, property, size, type, __func__);

  const DeviceSet ownSet = PresentDevices(classGuid);
  if (ownSet == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetClassDevs():failed:ec=0x%08x\n", __func__, platform::GetLastError());
    return nullptr;
  }
  return ReadPropertyAt(ownSet.get(), index, property, size, type, __func__);
}
