// The machine that tests and benchmarks start from, as a machine file describes it.
#pragma once

#include <string>
#include <utility>
#include <vector>

// A 64-bit 6.1 system on X:, two processors, 8 GiB.
inline constexpr char kStandardSystem[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1, build = 7601, platform = 2, sp_major = 1, sp_minor = 0, suite = 0x100, product = 1 }
processor = { count = 2, architecture = 9, type = 8664, level = 6, revision = 0x3A09 }
memory = 8589934592
)";

// The same, with texts of it replaced wherever they stand.
inline std::string SystemToml(const std::vector<std::pair<std::string, std::string>> &changes) {
  std::string toml = kStandardSystem;
  for (const auto &[from, to] : changes) {
    for (std::size_t at = 0; (at = toml.find(from, at)) != std::string::npos; at += to.size()) {
      toml.replace(at, from.size(), to);
    }
  }
  return toml;
}

// A device, and a disk whose interface path has `interface` between its prefix and its class.
inline std::string DeviceToml(const std::string &instance, const std::string &className, const std::string &hardwareId,
                              const std::string &parent = "", const std::string &more = "") {
  return "[[device]]\ninstance = '" + instance + "'\n" + (className.empty() ? "" : "class = '" + className + "'\n") +
         (hardwareId.empty() ? "" : "hardware_ids = ['" + hardwareId + "']\n") +
         (parent.empty() ? "" : "parent = '" + parent + "'\n") + more;
}
inline std::string DiskToml(int number, const std::string &interface) {
  return "[[disk]]\nnumber = " + std::to_string(number) +
         "\ngeometry = { cylinders = 7832, heads = 255, sectors = 63, bytes = 512 }\ninterface = '\\\\?\\" + interface +
         "#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'\n";
}
// The device that names the HAL.
inline std::string ComputerToml(const std::string &hardwareId = "acpiapic_mp") {
  return DeviceToml("ROOT\\ACPI_HAL\\0000", "Computer", hardwareId);
}

// The least that a machine file may say: eight lines.
inline constexpr char kLeastMachine[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1 }
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = 'ram'
)";

// X: (RAM disk, host directory ram), with the product in X:\Halcyra, and D: (fixed, restored).
inline constexpr char kStandardDrives[] = R"(
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = 'ram'

[[drive]]
root = 'D:\'
type = 'fixed'
path = 'restored'

[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'X:\Halcyra'

)";

// The product's settings for a log that tells everything.
inline constexpr char kMasterIni[] = "[debugging]\r\nvxrcore=5\r\n";

// Restore job 1 of a 64-bit 6.1 system in D:\Windows, with drivers in X:\drivers; no extension file.
inline constexpr char kStandardJob[] = R"(
[registry.'SOFTWARE\Varnelt\Relmar\1']
Disk = '\\.\PhysicalDrive0'
InfDir = 'X:\drivers'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\Windows'
HAL = 9
OSVerMaj = 6
OSVerMin = 1
)";
