// The devices from a root bus down to a disk, as Windows would enumerate them.
#pragma once

#include <string>
#include <vector>

#include "rescue/disks.h"
#include "rescue/restored_system.h"

namespace rescue {

struct DeviceRow {
  std::string instance, setupClass, parent, comment;
  std::vector<std::string> hardwareIds, compatibleIds;  // best first
};

// The root bus first, the disk last. `number`: of the disk among all, to tell disks of one model apart. Which devices
// stand between an IDE or AHCI controller and its disk depends on the restored system's version.
std::vector<DeviceRow> DeviceRows(const Disk &disk, std::size_t number, const RestoredSystem &system);
// The device interface path of a disk's row.
std::string DiskInterface(const DeviceRow &disk);
// The text with "?" for what is no printable ASCII character.
std::string PlainText(const std::string &text);

}  // namespace rescue
