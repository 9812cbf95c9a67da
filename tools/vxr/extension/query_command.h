// The command `query`.
#pragma once

#include <cstdint>
#include <string>

struct QueryOptions {
  std::string file;
  std::string queryClass, item;  // names or numbers
  std::uint32_t volume = 0;
  std::int32_t disk = 0;
  std::string driver;  // disk, bus or controller; empty: none
  std::string letter;  // of VXREQV_VolIndex; empty: none
  unsigned codePage = 1252;
};

// Asks one question about an extension file. 0, or 1 when there is no answer.
int QueryCommand(const QueryOptions &options);
