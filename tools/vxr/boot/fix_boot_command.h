// The command `fix-boot`.
#pragma once

#include <string>

struct FixBootOptions {
  std::string disk;      // a device name of the machine, or an image or block device of the host with a geometry
  std::string machine;   // TOML file; empty with a geometry
  std::string geometry;  // cylinders, heads, sectors a track, bytes a sector: "C,H,S,B"; empty with a machine
};

// Repairs the boot sector of a disk's active partition and says what differed. 0, 1 on failure, 2 for a wrong geometry
// or a machine that cannot be opened.
int FixBootCommand(const FixBootOptions &options);
