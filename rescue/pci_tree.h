// PCI functions and the bridges above them, as sysfs shows them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "rescue/disks.h"

namespace rescue {

// Where a device hangs, by its own path in sysfs alone.
struct DevicePlace {
  std::string rootBus;                 // node of the PCI root bus; empty: there is none above the device
  std::vector<std::string> functions;  // nodes from the root bus down to the device's controller
  std::vector<std::string> below;      // the names that follow down to the device itself; without a root bus: all
};
DevicePlace PlaceOf(const std::string &node);
// Whether the controller has PCI buses of its own between itself and the device.
bool HidesBuses(const DevicePlace &place);

// Empty when there is no function above the device, or one of those that are does not tell its vendor and device.
ControllerPath ReadControllerPath(const std::filesystem::path &sysfs, const DevicePlace &place);

// All functions of the machine in the order of their addresses, which is Windows' own.
std::vector<PciNode> ListPciFunctions(const std::filesystem::path &sysfs);

}  // namespace rescue
