// The driver of one device of a run, by Windows' own rules.
#pragma once

#include <vector>

#include "package/choose/rank.h"
#include "vxr/device.h"

namespace package {

// Chooses the device's driver among the packages in the job's INF directory and below it, those of the running system,
// and what the restored system has itself; installs it in injection mode, else tells what would be done. A disk needs
// no driver: TRUE at once. `above`: ids of the devices between this one and the root, whose drivers must start as well.
// The device owns the driver record from its allocation on. FALSE, after logging, when there is no driver, or when what
// it needs could not be put into the restored system.
//
// The packages are read for the first device of a run and kept until EndDriverChoice.
BOOL FindDeviceDriver(VXR_DEVICE *device, const std::vector<DeviceIds> &above);
void EndDriverChoice();

// Whether the INF file of that path has a driver for the id that can be installed. Installs nothing.
BOOL HasDriverFor(const char *infPath, const char *hardwareId);

}  // namespace package
