#include "tests/bench/bench_machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/bench/inf_directory.h"
#include "tests/support/extension_format.h"
#include "tests/support/hive_builder.h"
#include "tests/support/scsi_machine.h"
#include "tests/support/standard_machine.h"
#include "vxrcore/machine.h"

namespace fs = std::filesystem;

namespace {

// The same job, with drivers chosen by Windows' rules.
constexpr char kWindowsJob[] = R"(
[registry.'SOFTWARE\Varnelt\Relmar\2']
Disk = '\\.\PhysicalDrive0'
InfDir = 'X:\drivers'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\'
BMEFile = 'X:\machine.bme'
DriverRules = 'windows'
BootRecord = 'auto'
)";

// What that job knows the restored system by.
void WriteExtension(const fs::path &file) {
  std::string image = BlankExtension();
  for (const char *field : {"system=C:\\Windows\\system32", "windows=C:\\Windows", "major=10", "minor=0", "build=19045",
                            "platform=2", "suite=0x100", "product=1", "hal=3", "kernel=3", "arch=9"}) {
    if (!PutExtensionField(&image, field)) std::abort();
  }
  std::ofstream(file, std::ios::binary) << image;
}

}  // namespace

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
  fs::create_directories(folder / "ram/Windows/inf");
  const fs::path restoredHive = folder / "restored/Windows/system32/config/SYSTEM";
  if (hive.empty()) {
    WriteHive(restoredHive, SystemHiveValues(1));
  } else {
    fs::copy_file(hive, restoredHive);
  }
  WriteExtension(folder / "ram/machine.bme");
  std::ofstream(folder / "machine.toml") << kStandardSystem << kStandardDrives << kStandardJob << kWindowsJob
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
