// The commands of vxr, one file each. Each returns the exit status of the program.
#pragma once

#include <cstdint>
#include <string>

constexpr int kExitUsage = 2;  // wrong usage, or a machine that cannot be opened

struct RunOptions {
  std::string machine;  // TOML file
  std::uint32_t job = 0;
  bool verify = false;
  bool json = false;
};

// The restore run on a described machine: status lines as they come, then what happened. The run's result code; 4 when
// the restored hive could not be saved; 2 when the machine cannot be opened.
int RunCommand(const RunOptions &options);

struct InfOptions {
  std::string file;
  unsigned codePage = 1252;
  unsigned language = 0x0409;
  bool json = false;
};

// Shows an INF file as its reader sees it. 0, or 1 when there is nothing to show.
int InfCommand(const InfOptions &options);
