#include "rescue/describe.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "platform/architecture.h"
#include "platform/text/code_page.h"
#include "platform/text/toml_string.h"
#include "rescue/device_tables.h"
#include "rescue/undo_manifest.h"

namespace rescue {
namespace {

constexpr std::uint32_t kWestern = 1252;  // code page

std::string Text(const std::string &text) { return machine::TomlString(text); }

std::string List(const std::vector<std::string> &texts) {
  std::string list;
  for (const std::string &text : texts) list += (list.empty() ? "" : ", ") + Text(text);
  return "[" + list + "]";
}

// The running system is given the restored one's version, language and code page: its INF files are read as that system
// would read them.
std::string SystemTable(const Description &description) {
  const RestoredSystem &system = description.system;
  const std::string drive(1, RunningDrive(system));
  // The described machine's processor need not be the restored system's, which the job names.
  const std::uint32_t processor = system.architecture == kArm64 ? kAmd64 : system.architecture;
  const std::uint32_t page = machine::KnownCodePage(system.codePage) ? system.codePage : kWestern;
  return "[system]\nsystem_directory = '" + drive + ":\\Windows\\System32'\nwindows_directory = '" + drive +
         ":\\Windows'\nos = { major = " + std::to_string(system.major) + ", minor = " + std::to_string(system.minor) +
         ", build = " + std::to_string(system.build) + " }\nprocessor = { architecture = " + std::to_string(processor) +
         " }\ncode_page = " + std::to_string(page) + "\nlanguage = " + std::to_string(system.language) +
         "\nclock = " + TimeText(description.time) + "\n";
}

std::string Drive(char letter, const char *type, const std::filesystem::path &path) {
  return std::string("\n[[drive]]\nroot = '") + letter + ":\\'\ntype = '" + type + "'\npath = " + Text(path.string()) +
         "\n";
}

std::string Drives(const Description &description) {
  const RestoredSystem &system = description.system;
  return Drive(RunningDrive(system), "ramdisk", description.scratch) + Drive(system.drive, "fixed", system.volume) +
         (description.drives.empty() ? "" : "\n" + description.drives);
}

std::string DiskName(std::size_t number) { return "\\\\.\\PhysicalDrive" + std::to_string(number); }

std::string DiskTable(const Disk &disk, std::size_t number, const std::string &interface) {
  constexpr std::uint64_t kHeads = 255, kSectors = 63, kMostCylinders = 0xFFFFFFFF;
  const std::uint64_t cylinders =
      std::clamp<std::uint64_t>(disk.size / (kHeads * kSectors * disk.sectorSize), 1, kMostCylinders);
  return "\n[[disk]]" + std::string(disk.model.empty() ? "" : "  # " + PlainText(disk.model)) +
         "\nnumber = " + std::to_string(number) + "\ngeometry = { cylinders = " + std::to_string(cylinders) +
         ", heads = 255, sectors = 63, bytes = " + std::to_string(disk.sectorSize) +
         " }\ninterface = " + Text(interface) + "\n";
}

std::string DeviceTable(const DeviceRow &device) {
  std::string table = "\n[[device]]" + (device.comment.empty() ? "" : "  # " + device.comment);
  table += "\ninstance = " + Text(device.instance) + "\nclass = " + Text(device.setupClass);
  table += "\nhardware_ids = " + List(device.hardwareIds);
  if (!device.compatibleIds.empty()) table += "\ncompatible_ids = " + List(device.compatibleIds);
  if (!device.parent.empty()) table += "\nparent = " + Text(device.parent);
  return table + "\n";
}

// The devices above each disk, then the disk: a device comes behind its parent, and once.
std::string DevicesAndDisks(const Description &description) {
  std::string devices =
      "\n[[device]]  # names the HAL\ninstance = 'ROOT\\ACPI_HAL\\0000'\nclass = 'Computer'\n"
      "hardware_ids = ['acpiapic_mp']\n";
  std::string disks;
  std::set<std::string> told;
  for (std::size_t number = 0; number < description.disks.size(); ++number) {
    const Disk &disk = description.disks[number];
    const std::vector<DeviceRow> rows = DeviceRows(disk, number, description.system);
    for (const DeviceRow &row : rows) {
      if (told.insert(row.instance).second) devices += DeviceTable(row);
    }
    disks += DiskTable(disk, number, DiskInterface(rows.back()));
  }
  return disks + devices;
}

std::string Job(const Description &description) {
  const RestoredSystem &system = description.system;
  const std::string drive(1, RunningDrive(system));
  std::string job = "\n[registry.'SOFTWARE\\Varnelt\\Relmar\\" + std::to_string(kJob) +
                    "']\nDisk = " + Text(DiskName(0)) + "\nBootPart = " + Text(DiskName(0) + "\\Partition1") +
                    "\nRootPath = " + Text(WindowsPath(system, system.windows)) +
                    "\nHAL = " + std::to_string(system.architecture) + "\nOSVerMaj = " + std::to_string(system.major) +
                    "\nOSVerMin = " + std::to_string(system.minor) + "\nOSBuild = " + std::to_string(system.build) +
                    "\nOSProduct = " + std::to_string(system.product) + "\nOSSuite = " + std::to_string(system.suite) +
                    "\nDriverRules = 'windows'\nBootRecord = 'auto'\n";
  std::vector<std::string> directories = description.driverDirectories;
  const std::string none = drive + ":\\no-drivers";  // the restored system's own are looked at all the same
  job += "InfDir = " + Text(directories.empty() ? none : directories.front()) + "\n";
  if (directories.size() > 1) {
    directories.erase(directories.begin());
    job += "MoreInfDirs = " + List(directories) + "\n";
  }
  std::vector<std::string> more;
  for (std::size_t number = 1; number < description.disks.size(); ++number) more.push_back(DiskName(number));
  if (!more.empty()) job += "MoreDisks = " + List(more) + "\n";
  return job;
}

std::string ControllerKey(const ControllerPath &controller) {
  return controller.nodes.empty() ? controller.otherId : controller.nodes.front().address;
}

}  // namespace

char RunningDrive(const RestoredSystem &system) { return system.drive == 'X' ? 'W' : 'X'; }

std::string WindowsPath(const RestoredSystem &system, const std::filesystem::path &path) {
  std::string below = path.lexically_relative(system.volume).string();
  std::replace(below.begin(), below.end(), '/', '\\');
  return std::string(1, system.drive) + ":\\" + (below == "." ? "" : below);
}

std::string DescribeMachine(const Description &description) {
  const std::string drive(1, RunningDrive(description.system));
  return SystemTable(description) + Drives(description) + DevicesAndDisks(description) + "\n[registry.'" + kHostKey +
         "']\nHCDIR = '" + drive + ":\\Halcyra'\n" + Job(description);
}

std::vector<Disk> OneForEachController(const std::vector<Disk> &disks) {
  std::vector<Disk> chosen;
  std::set<std::pair<std::string, unsigned>> controllers;
  const auto add = [&](const Disk &disk) {
    // The channels of an IDE controller are devices of their own.
    const unsigned channel = disk.bus == DiskBus::kIde ? disk.channel : 0;
    if (controllers.emplace(ControllerKey(disk.controller), channel).second) chosen.push_back(disk);
  };
  for (const Disk &disk : disks) {
    add(disk);
    for (const ControllerPath &other : disk.otherControllers) {
      Disk same = disk;
      same.controller = other;
      add(same);
    }
  }
  return chosen;
}

}  // namespace rescue
