// The command `hive`.
#pragma once

#include <string>

struct HiveOptions {
  std::string file;
  std::string replay;  // file to write the recovered hive to; empty: none
  bool json = false;
};

// Shows what a registry hive is and what its logs would do; only with described machines, since Windows does this
// itself. 0, or 1 when the hive could not be changed, or the recovered one not be written.
int HiveCommand(const HiveOptions &options);
