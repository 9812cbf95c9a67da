// What the commands of a rescue system share: the restored system they are about and the hardware it is to start on.
#pragma once

#include <string>
#include <vector>

struct RescueOptions {
  std::string root;                      // mounted volume of the restored system, or its Windows directory
  std::vector<std::string> drivers;      // directories of driver packages
  std::vector<std::string> controllers;  // hardware to come; empty: the disks that hold the root
  std::vector<std::string> disks;        // by their names; empty: those that hold the root
  std::string sysfs;                     // a captured tree; empty: this machine's own
  bool list = false, dryRun = false, force = false, json = false;
};
