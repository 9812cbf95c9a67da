#include "device/properties.h"

#include "device/records.h"
#include "log/dump.h"
#include "log/log.h"

namespace {

constexpr char kPropertyCall[] = "SetupDiGetDeviceRegistryProperty";

constexpr SIZE_T kTerminators = 2;  // bytes behind a property, which may lack its own

// The property's size in bytes, its type in `*type`; 0 after a log line when it cannot be had.
DWORD PropertySize(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, const Caller &trace) {
  DWORD size = 0;
  if (!platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, type, nullptr, 0, &size) &&
      platform::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    trace.Failed(kPropertyCall, "failed to get size!");
    return 0;
  }
  if (size == 0) trace.Failed(kPropertyCall, "returned 0 bytes as size");
  return size;
}

HeapText ReadProperty(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, DWORD *size,
                      const Caller &trace) {
  const DWORD needed = PropertySize(set, device, property, type, trace);
  if (needed == 0) return nullptr;
  trace.Flush("SetupDiGetDeviceRegistryProperty():prop %x as type %x needs %d bytes!\n", property, *type, needed);
  HeapText value = AllocText(needed, "pPropBuf", trace, kTerminators);
  if (value == nullptr) return nullptr;
  if (!platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, type, reinterpret_cast<BYTE *>(value.get()),
                                                   needed, size)) {
    trace.Error("SetupDiGetDeviceRegistryProperty(Prop=%X):ec=0x%08x:failed to query!\n", property,
                platform::GetLastError());
    return nullptr;
  }
  return value;
}

// The property of the device at `index` of an open set.
HeapText ReadPropertyAt(HDEVINFO set, DWORD index, DWORD property, DWORD *size, DWORD *type, const Caller &trace) {
  trace.Check("retrieved device info set handle=%p...\n", set);
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  if (!platform::SetupDiEnumDeviceInfo(set, index, &device)) {
    trace.Error("SetupDiEnumDeviceInfo() failed for index=%d!ec=0x%08x\n", index, platform::GetLastError());
    return nullptr;
  }
  HeapText value = VXRDev_GetRegPropByDevInfo(set, &device, property, type, size);
  if (value == nullptr) trace.Error("VXRDev_GetRegPropByDevInfo() failed!\n");
  return value;
}

bool IsSet(HDEVINFO handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

}  // namespace

HeapText ReadInstanceId(HDEVINFO set, SP_DEVINFO_DATA *device, const char *purpose, InstanceIdStep *failed,
                        const Caller &trace) {
  *failed = InstanceIdStep::kSize;
  DWORD size = 0;
  const BOOL sized = platform::SetupDiGetDeviceInstanceIdA(set, device, nullptr, 0, &size);
  if (size == 0 || (!sized && platform::GetLastError() != ERROR_INSUFFICIENT_BUFFER)) return nullptr;
  *failed = InstanceIdStep::kMemory;
  HeapText id = purpose != nullptr ? AllocText(size, purpose, trace) : AllocTextUnlogged(size);
  if (id == nullptr) return nullptr;
  *failed = InstanceIdStep::kText;
  return platform::SetupDiGetDeviceInstanceIdA(set, device, id.get(), size, nullptr) ? std::move(id) : nullptr;
}

HeapText VXRDev_GetRegPropByDevInfo(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, DWORD property, DWORD *type,
                                    DWORD *size) {
  const CallTrace trace = TraceCall();
  *type = 0;
  *size = 0;
  if (pDevInfoData == nullptr) {
    trace.Null("pDevInfoData");
    return nullptr;
  }
  if (!IsSet(hDevInfo)) {
    trace.Error("hDevInfo is INVALID_HANDLE_VALUE\n");
    return nullptr;
  }
  HeapText value = ReadProperty(hDevInfo, pDevInfoData, property, type, size, trace);
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
    trace.Error("NULL GUID!\n");
    return nullptr;
  }
  VXRDbg_DumpGuid(classGuid, trace.name);
  if (property >= kPropertyLimit) {
    trace.Error("Prop=%X > SPDRP_MAXIMUM_PROPERTY!\n", property);
    return nullptr;
  }
  trace.Check("retrieving %s\n", VXRDbg_GetPropertyName(property));
  if (IsSet(hDevInfo)) return ReadPropertyAt(hDevInfo, index, property, size, type, trace);

  const DeviceSet ownSet = PresentDevices(classGuid);
  if (ownSet == nullptr) {
    trace.Error("SetupDiGetClassDevs():failed:ec=0x%08x\n", platform::GetLastError());
    return nullptr;
  }
  return ReadPropertyAt(ownSet.get(), index, property, size, type, trace);
}
