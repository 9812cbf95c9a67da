#include "device/scan/devices_above.h"

#include <string>

#include "device/records.h"

namespace {

// A tree that is deeper is taken for one that goes in a circle.
constexpr std::size_t kMaxDepth = 64;

// A multi-string; empty when the device has no such ids.
std::string ReadIds(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, const Caller &trace) {
  DWORD type = 0, size = 0;
  if (platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, &type, nullptr, 0, &size)) return {};
  std::string texts(size, '\0');
  if (size != 0 && platform::SetupDiGetDeviceRegistryPropertyA(set, device, property, &type,
                                                               reinterpret_cast<BYTE *>(texts.data()), size, nullptr)) {
    return texts + '\0';  // a stored one need not be ended
  }
  if (const DWORD error = platform::GetLastError(); error != ERROR_INVALID_DATA) {
    trace.Warning("ids of a device above the disk were not read, its driver may stay held back (error %u)\n", error);
  }
  return {};
}

bool FindNode(HDEVINFO set, DEVINST node, SP_DEVINFO_DATA *device) {
  *device = {};
  device->cbSize = sizeof *device;
  for (DWORD i = 0; platform::SetupDiEnumDeviceInfo(set, i, device); ++i) {
    if (device->DevInst == node) return true;
  }
  return false;
}

}  // namespace

std::vector<DeviceAbove> DevicesAbove(DWORD hDevInst, const Caller &trace) {
  std::vector<DeviceAbove> above;
  const DeviceSet set = PresentDevices(nullptr);
  if (set == nullptr) {
    trace.Warning("the devices above the disk were not read, their drivers may stay held back (error %u)\n",
                  platform::GetLastError());
    return above;
  }
  DEVINST node = hDevInst, parent = 0;
  while (above.size() < kMaxDepth && platform::CM_Get_Parent(&parent, node, 0) == CR_SUCCESS) {
    SP_DEVINFO_DATA device;
    DeviceAbove found;
    if (FindNode(set.get(), parent, &device)) {
      found.classGuid = device.ClassGuid;
      const std::string hardware = ReadIds(set.get(), &device, SPDRP_HARDWAREID, trace),
                        compatible = ReadIds(set.get(), &device, SPDRP_COMPATIBLEIDS, trace);
      found.ids = package::IdsOf(hardware.c_str(), compatible.c_str());
    }
    above.push_back(std::move(found));
    node = parent;
  }
  return above;
}
