// The command `drivers`: which INF file would be installed for a device, and why not each other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct DriversOptions {
  std::vector<std::string> directories;
  std::string target;
  std::vector<std::string> ids, compatibleIds;  // as given; PCI functions in numbers are expanded
  std::string rules = "windows";
  unsigned codePage = 1252, language = 0x0409;
  bool json = false;
};

// 0 when a driver can be installed, 1 when none, 2 for wrong usage.
int DriversCommand(const DriversOptions &options);
