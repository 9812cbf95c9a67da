// From a mounted directory down to the disks that hold it. The text of a failure is a whole line for people.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "rescue/disks.h"

namespace rescue {

// Where a directory's file system comes from, as the kernel tells it.
struct Mount {
  std::string source;  // "/dev/sda2"
  std::string type;    // "ntfs3", "fuseblk", "vfat"
  std::filesystem::path point;
  bool readOnly = false;
  unsigned major = 0, minor = 0;  // of its block device; major 0: it has none of its own
};

// The mount that a directory lies in, by a table of mounts in the form of /proc/self/mountinfo. Fails when it is no
// directory.
machine::Status FindMount(const std::filesystem::path &directory, const std::filesystem::path &mountInfo, Mount *mount);

// All disks below a sysfs (such as "/sys"), in the order of their names, virtual devices, drives for discs and empty
// drives left out.
machine::Status ListDisks(const std::filesystem::path &sysfs, std::vector<Disk> *disks);

// The disks that hold the file system: through partitions, loop devices, device-mapper and md all that are below.
// Fails, with one line that says what to do, when there is none, such as for an image in a file.
machine::Status DisksOf(const Mount &mount, const std::filesystem::path &sysfs, std::vector<Disk> *disks);

}  // namespace rescue
