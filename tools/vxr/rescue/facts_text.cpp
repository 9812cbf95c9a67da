#include "tools/vxr/rescue/facts_text.h"

#include <cstdio>

#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"

using Json = nlohmann::ordered_json;

namespace {

const char *ProductText(std::uint32_t product) {
  return product == 3 ? "server" : product == 2 ? "domain controller" : "workstation";
}

const char *BusText(rescue::DiskBus bus) {
  switch (bus) {
    case rescue::DiskBus::kIde:
      return "IDE";
    case rescue::DiskBus::kAta:
      return "AHCI";
    case rescue::DiskBus::kScsi:
      return "SCSI, SAS or RAID";
    case rescue::DiskBus::kNvme:
      return "NVMe";
    case rescue::DiskBus::kVirtio:
      return "virtio";
    case rescue::DiskBus::kUsb:
      return "USB";
    case rescue::DiskBus::kSd:
      return "SD card";
    case rescue::DiskBus::kOther:
      break;
  }
  return "another bus";
}

std::string Version(const rescue::RestoredSystem &system) {
  return std::to_string(system.major) + "." + std::to_string(system.minor) + "." + std::to_string(system.build) +
         (system.revision ? "." + std::to_string(*system.revision) : "");
}

// "512.1 GB", as makers of disks count.
std::string SizeText(std::uint64_t bytes) {
  static const char *const kUnits[] = {"kB", "MB", "GB", "TB"};
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 1000 && unit + 1 < std::size(kUnits); ++unit) size /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

// Of hardware to come the place is made up.
void PrintNode(const rescue::PciNode &node, const char *what, bool toCome) {
  PrintLine(std::string("      ") + what + rescue::HardwareIds(node.function).front() +
            (toCome ? "" : " at " + node.address) + (node.driver.empty() ? "" : ", Linux driver " + node.driver));
}

void PrintDisk(const rescue::Disk &disk, bool toCome) {
  if (!toCome) {
    const std::string model = disk.vendor + (disk.vendor.empty() || disk.model.empty() ? "" : " ") + disk.model;
    PrintLine("  " + disk.name + "  " + (model.empty() ? "" : model + ", ") + SizeText(disk.size) + ", " +
              BusText(disk.bus));
  } else {
    PrintLine("  " + disk.name + ", for the hardware to come");
  }
  if (!disk.unfit.empty()) PrintLine("      " + disk.unfit);
  if (!disk.controller.otherId.empty()) PrintLine("      on " + disk.controller.otherId);
  for (std::size_t i = 0; i < disk.controller.nodes.size(); ++i) {
    PrintNode(disk.controller.nodes[i], i == 0 ? "on " : "below the bridge ", toCome);
  }
}

Json NodeJson(const rescue::PciNode &node, bool toCome) {
  return {{"address", toCome ? Json() : Json(node.address)},
          {"hardware_ids", rescue::HardwareIds(node.function)},
          {"compatible_ids", rescue::CompatibleIds(node.function)},
          {"linux_driver", OrNull(node.driver)}};
}

Json DiskJson(const rescue::Disk &disk, bool toCome) {
  Json path = Json::array();
  for (const rescue::PciNode &node : disk.controller.nodes) path.push_back(NodeJson(node, toCome));
  if (!disk.controller.otherId.empty()) path.push_back({{"hardware_ids", {disk.controller.otherId}}});
  return {{"name", disk.name},
          {"vendor", toCome ? Json() : OrNull(disk.vendor)},
          {"model", toCome ? Json() : OrNull(disk.model)},
          {"serial", OrNull(disk.serial)},
          {"size", toCome ? Json() : Json(disk.size)},
          {"bus", BusText(disk.bus)},
          {"controller_and_bridges", std::move(path)},
          {"unfit", OrNull(disk.unfit)}};
}

// Of hardware `toCome` the disks are made up.
Json DisksJson(const std::vector<rescue::Disk> &disks, bool toCome) {
  Json list = Json::array();
  for (const rescue::Disk &disk : disks) list.push_back(DiskJson(disk, toCome));
  return list;
}

}  // namespace

void PrintSystem(const rescue::RestoredSystem &system) {
  PrintTitle("Restored system");
  const std::string name = system.productName.empty() ? "Windows" : system.productName;
  PrintLine("  " + name + (system.release.empty() ? "" : " " + system.release) + ", " + Version(system) + ", " +
            ArchitectureText(system.architecture) + ", " + ProductText(system.product));
  PrintLine("  in " + system.windows.string() + ", its drive " + system.drive + ":" +
            (system.computerName.empty() ? "" : ", computer " + system.computerName));
  if (!system.hiveReplay.empty()) PrintLine("  its registry was not closed cleanly: " + system.hiveReplay);
  for (const std::string &doubt : system.doubts) PrintLine("  note: " + doubt);
}

Json SystemJson(const rescue::RestoredSystem &system) {
  return {{"windows", system.windows.string()},
          {"drive", std::string(1, system.drive)},
          {"name", OrNull(system.productName)},
          {"edition", OrNull(system.edition)},
          {"release", OrNull(system.release)},
          {"version", Version(system)},
          {"architecture", ArchitectureText(system.architecture)},
          {"product", ProductText(system.product)},
          {"suite", system.suite},
          {"language", system.language},
          {"code_page", system.codePage},
          {"control_set", system.controlSet},
          {"driver_database", system.driverDatabase},
          {"computer", OrNull(system.computerName)},
          {"hive_replay", OrNull(system.hiveReplay)},
          {"doubts", system.doubts}};
}

void PrintFacts(const RescueFacts &facts, bool all) {
  if (facts.system) PrintSystem(*facts.system);
  const std::vector<rescue::Disk> &disks = all ? facts.all : facts.disks;
  PrintTitle(all ? "Disks of this machine" : facts.toCome ? "Controllers" : "Disks to start from");
  if (disks.empty()) PrintLine("  none");
  for (const rescue::Disk &disk : disks) PrintDisk(disk, facts.toCome && !all);
  if (!facts.diskProblem.empty()) PrintLine("  " + facts.diskProblem);
}

Json ObstaclesJson(const RescueFacts &facts) {
  Json obstacles = Json::array();
  for (const rescue::Obstacle &obstacle : facts.obstacles) {
    obstacles.push_back({{"reason", obstacle.word}, {"text", obstacle.text}, {"forcible", obstacle.forcible}});
  }
  return obstacles;
}

Json FactsJson(const RescueFacts &facts) {
  return {{"system", facts.system ? SystemJson(*facts.system) : Json()},
          {"all_disks", DisksJson(facts.all, false)},
          {"disks", DisksJson(facts.disks, facts.toCome)},
          {"disk_problem", OrNull(facts.diskProblem)},
          {"obstacles", ObstaclesJson(facts)}};
}
