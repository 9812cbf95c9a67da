// One block device of sysfs as a disk.
#pragma once

#include <filesystem>
#include <string>

#include "rescue/disks.h"

namespace rescue {

// `name` as in sysfs' folder of block devices. False when it is no disk: a partition of a card, a virtual device, one
// of the hidden paths to an NVMe disk, a drive for discs, or one that is empty.
bool ReadDisk(const std::filesystem::path &sysfs, const std::string &name, Disk *disk);

}  // namespace rescue
