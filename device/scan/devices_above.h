// The devices between one device and the root of the device tree.
#pragma once

#include <vector>

#include "log/log.h"
#include "package/choose/rank.h"
#include "platform/platform.h"

struct DeviceAbove {
  GUID classGuid = {};  // all zero: none
  package::DeviceIds ids;
};

// From the parent of the node upwards. Ends where the tree cannot be followed further; a device without ids has none,
// as one whose ids cannot be read, which is warned of: what a bridge or a bus lacks is no failure of a run.
std::vector<DeviceAbove> DevicesAbove(DWORD hDevInst, const Caller &trace);
