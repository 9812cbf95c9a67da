// The command `run`: the restore run.
#pragma once

#include <cstdint>
#include <string>

struct RunOptions {
  std::string machine;  // TOML file; empty without described machines, here and below
  std::uint32_t job = 0;
  bool verify = false;
  std::string rules, record;  // the job's DriverRules and BootRecord for this run; empty: as the job has them
  bool json = false;
};

// The restore run on a described machine: status lines as they come, then what happened. The run's result code; 4 when
// the restored hive could not be saved; 2 when the machine cannot be opened.
int RunCommand(const RunOptions &options);
