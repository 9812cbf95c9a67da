#include "tests/bench/bench_machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/bench/inf_directory.h"
#include "tests/support/scsi_machine.h"
#include "tests/support/standard_machine.h"
#include "vxrcore/machine.h"

namespace fs = std::filesystem;

fs::path MakeBenchFolder() {
  std::string name = (fs::temp_directory_path() / "vxr-bench-XXXXXX").string();
  if (!mkdtemp(name.data())) std::abort();
  return name;
}

BenchMachine MakeBenchMachine(unsigned infCount, const fs::path &hive) {
  const fs::path folder = MakeBenchFolder();
  fs::create_directories(folder / "ram/Windows/System32");
  fs::create_directories(folder / "ram/Halcyra/logs.dir");
  fs::create_directories(folder / "restored/Windows/system32/config");
  MakeInfDirectory(folder / "ram/drivers", infCount);
  if (!hive.empty()) fs::copy_file(hive, folder / "restored/Windows/system32/config/SYSTEM");
  std::ofstream(folder / "machine.toml") << kStandardSystem << kStandardDrives << kStandardJob
                                         << ScsiMachine(R"(PCI\VEN_1AF4&DEV_1042)");
  return {folder};
}

void RemoveBenchMachine(const BenchMachine &machine) { fs::remove_all(machine.folder); }

void OpenBenchMachine(const BenchMachine &machine) {
  char message[512] = "";
  if (VXRMachine_Open((machine.folder / "machine.toml").c_str(), message, sizeof message)) return;
  std::fprintf(stderr, "vxr_bench: %s\n", message);
  std::exit(2);
}

void CloseBenchMachine() {
  VXRDbg_Cleanup();
  VXRMachine_Close();
}
