// A controller as a user names it, for a machine that is not the one that the rescue system runs on.
#pragma once

#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "rescue/disks.h"

namespace rescue {

// One disk below each controller that the arguments name: "PCI\VEN_1000&DEV_0054..." with whatever of SUBSYS, REV and
// CC is known, "1000:0054[:SUBV:SUBD[:REV]]" with the class behind it in the same argument or the next, or an id of
// another bus. Fails, with one line, at the first that is none of these.
machine::Status DisksToCome(const std::vector<std::string> &arguments, std::vector<Disk> *disks);

}  // namespace rescue
