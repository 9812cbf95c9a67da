// A described machine for benchmarks: a recovery environment whose boot disk hangs off an adapter that no INF file
// lists.
#pragma once

#include <filesystem>
#include <string>

struct BenchMachine {
  std::filesystem::path folder;  // X: is its ram/, D: its restored/
};

// A new temporary folder.
std::filesystem::path MakeBenchFolder();

// Makes the folder with `infCount` INF files in X:\drivers; `hive` (a file) becomes the restored system's hive, a
// small one when it is empty. Job 1 is the restore job, job 2 the same of a 10.0 system by Windows' rules.
BenchMachine MakeBenchMachine(unsigned infCount, const std::filesystem::path &hive);
void RemoveBenchMachine(const BenchMachine &machine);

// Opens it and ends the program with a line when that fails; closes the log and the machine.
void OpenBenchMachine(const BenchMachine &machine);
void CloseBenchMachine();
