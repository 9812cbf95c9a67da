// Device sets: what SetupDiGetClassDevsA gives out.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/machine/setup/device_tree.h"

namespace machine {

// A driver that serves a device, in a device's list of them.
struct Driver {
  std::string infPath;  // as the search was given it
  FILETIME infDate = {};
  std::string description, manufacturer, provider, section;
  std::vector<std::string> ids;  // the model line's hardware id, then its compatible ids
  FILETIME date = {};            // of DriverVer
  DWORD64 version = 0;
};

// A device's install parameters and driver list within one set.
struct DriverSearch {
  DWORD flags = 0, flagsEx = 0;
  std::string driverPath;
  std::vector<Driver> drivers;  // best first
};

struct DeviceSet {
  std::vector<std::uint32_t> devices;  // in the order of enumeration
  std::vector<bool> members;           // by device, as far as the last one in the set
  std::vector<std::size_t> disks;      // numbers of the disks whose interfaces are in the set, ascending
  std::map<std::uint32_t, DriverSearch> searches;
};

void AddDevice(std::uint32_t device, DeviceSet *set);
HDEVINFO AddSet(DeviceSet set);
// False for a handle of no set.
bool DropSet(HDEVINFO set);
// Null for a handle of no set.
DeviceSet *FindSet(HDEVINFO set);
void CloseDeviceSets();
std::size_t OpenDeviceSets();  // for tests that look for leaks

// The set and the device that a call names.
struct NamedDevice {
  DeviceSet *set = nullptr;
  std::uint32_t device = kNoDevice;
};

// Fails with ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER, ERROR_INVALID_USER_BUFFER for a record of the wrong size,
// ERROR_NO_SUCH_DEVINST for a device that is not in the set.
Status FindNamedDevice(HDEVINFO set, const SP_DEVINFO_DATA *record, NamedDevice *named);

}  // namespace machine
