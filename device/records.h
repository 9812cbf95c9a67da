// Device types, their set-up classes, and the release of device and driver records.
#pragma once

#include "log/heap.h"
#include "vxr/parameters.h"

// Stores the class GUID of a device type (VXR_DEVTYPE_...); from VXR_DEVTYPE_NET on the network adapters'. Always TRUE.
BOOL VXRDev_GetGuidByDevType(DWORD deviceType, GUID *guid);
// The GUID in upper-case hexadecimal: 38 characters with braces, 36 without. Null, after a log line, without memory.
HeapText VXRDev_GetGuidString(const GUID *guid, BOOL braces);
// The same for the class GUID of a device type.
HeapText VXRDev_GetGuidStringByType(DWORD deviceType, BOOL braces);
// The platform's name of the type's class, such as "hdc". Null, after a log line, when the platform has none or without
// memory.
HeapText VXRDev_GetClassStringByType(DWORD deviceType);

// Release a record and all that it owns: a driver without the matched id and the device that it borrows, a device with
// its driver and its whole parent chain. Always TRUE; null is ignored.
BOOL VXRDev_FreeDriver(VXR_DRIVER *pVXRDriver);
BOOL VXRDev_FreeDevice(VXR_DEVICE *pVXRDevice);
// Releases the block's devices and sets its count to 0. Always TRUE; null is ignored.
BOOL VXRDev_FreeDevices(VXR_PARABLOCK *pVXRParaBlock);

struct DeviceSetDeleter {
  void operator()(void *set) const { platform::SetupDiDestroyDeviceInfoList(set); }
};
// A device-information set, destroyed at the end of its scope. Null stands for the invalid handle.
using DeviceSet = std::unique_ptr<void, DeviceSetDeleter>;
// The present devices of a class, or of all classes for null. Null, with the last error, when the set cannot be made.
DeviceSet PresentDevices(const GUID *classGuid);
