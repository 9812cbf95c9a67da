// The command `inf`.
#pragma once

#include <string>

struct InfOptions {
  std::string file;
  unsigned codePage = 1252;
  unsigned language = 0x0409;
  bool json = false;
};

// Shows an INF file as its reader sees it. 0, or 1 when there is nothing to show.
int InfCommand(const InfOptions &options);
