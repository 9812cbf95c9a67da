// The command `system`: a restored Windows, looked at from outside.
#pragma once

#include <string>
#include <vector>

struct SystemOptions {
  std::string root;              // mounted volume of the restored system, or its Windows directory
  std::vector<std::string> ids;  // devices of which the driver is asked
  bool json = false;
};

// 0; 1 when the system cannot be told; 2 for wrong usage.
int SystemCommand(const SystemOptions &options);
