// The command `show`.
#pragma once

#include <string>
#include <vector>

struct ShowOptions {
  std::vector<std::string> files;
  unsigned codePage = 1252;
  bool json = false;
};

// Shows whole extension files. 0, or 1 when one of them cannot be read or is no extension file.
int ShowCommand(const ShowOptions &options);
