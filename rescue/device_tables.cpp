#include "rescue/device_tables.h"

#include <algorithm>

#include "rescue/format.h"

namespace rescue {
namespace {

constexpr char kSystemClass[] = "{4D36E97D-E325-11CE-BFC1-08002BE10318}";

// What Windows makes of a parent's instance id in those of its children: a number that differs.
std::uint32_t Hash(const std::string &text) {
  std::uint32_t hash = 2166136261u;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return hash;
}

// Device and function of "0000:02:1c.3", as PCI counts them together.
unsigned Place(const std::string &address) {
  unsigned domain = 0, bus = 0, device = 0, function = 0;
  std::sscanf(address.c_str(), "%x:%x:%x.%x", &domain, &bus, &device, &function);
  return (device << 3 | function) & 0xFF;
}

// Texts of disks in ids: what cannot stand there becomes "_".
std::string IdText(std::string text, std::size_t width = 0) {
  for (char &c : text) {
    const bool stays =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
    if (!stays) c = '_';
  }
  if (width != 0) text.resize(width, '_');
  return text;
}

DeviceRow RootBus(const std::string &name) {
  const std::string id = name.empty() ? "PNP0A08" : name;
  DeviceRow row{"ACPI\\" + id + "\\0", kSystemClass, "", "the root bus", {"ACPI\\" + id, "*" + id}, {}};
  if (id == "PNP0A08") row.compatibleIds = {"ACPI\\PNP0A03", "*PNP0A03"};
  return row;
}

DeviceRow PciRow(const std::vector<PciNode> &nodes, std::size_t index, const std::string &parent) {
  const PciNode &node = nodes[index];
  DeviceRow row;
  row.hardwareIds = HardwareIds(node.function);
  row.compatibleIds = CompatibleIds(node.function);
  row.setupClass = SetupClass(node.function);
  row.parent = parent;
  row.comment = index == 0 ? "the controller" : "a bridge";
  if (!node.driver.empty()) row.comment += ", under Linux " + PlainText(node.driver);
  std::string places;
  for (std::size_t above = index; above < nodes.size(); ++above) places += Format("%02X", Place(nodes[above].address));
  const auto depth = static_cast<unsigned>(3 + nodes.size() - 1 - index);
  row.instance = row.hardwareIds.front() + Format("\\%u&%08X&0&", depth, Hash(parent + node.address)) + places;
  return row;
}

DeviceRow OtherController(const std::string &id) { return {id + "\\1", "SCSIAdapter", "", "the controller", {id}, {}}; }

// A channel, which systems before 6.2 put between an IDE or AHCI controller and its disks.
DeviceRow Channel(const Disk &disk, const DeviceRow &controller) {
  DeviceRow row;
  row.instance = Format("PCIIDE\\IDEChannel\\4&%08X&0&%u", Hash(controller.instance), disk.channel);
  row.setupClass = "hdc";
  row.parent = controller.instance;
  row.comment = "its channel";
  const bool ahci = disk.bus == DiskBus::kAta;
  row.hardwareIds = {ahci                ? "Internal_IDE_Channel"
                     : disk.channel == 0 ? "Primary_IDE_Channel"
                                         : "Secondary_IDE_Channel"};
  row.compatibleIds = {"*PNP0600"};
  return row;
}

DeviceRow IdeDisk(const Disk &disk, std::size_t number, const DeviceRow &parent) {
  const std::string model = IdText(disk.model, 40), revision = IdText(disk.revision, 8);
  DeviceRow row;
  row.instance =
      "IDE\\Disk" + model + revision +
      Format("\\5&%08X&0&%u.%u.%u", Hash(parent.instance) + static_cast<unsigned>(number), disk.target, 0u, 0u);
  row.hardwareIds = {"IDE\\Disk" + model + revision, "IDE\\" + model + revision, "IDE\\Disk" + model, model + revision,
                     "GenDisk"};
  return row;
}

DeviceRow ScsiDisk(const Disk &disk, std::size_t number, const DeviceRow &parent) {
  const std::string vendor = disk.bus == DiskBus::kNvme ? "NVMe" : disk.bus == DiskBus::kAta ? "ATA" : disk.vendor;
  const std::string padded = IdText(vendor, 8) + IdText(disk.model, 16);
  DeviceRow row;
  row.instance = "SCSI\\Disk&Ven_" + IdText(vendor) + "&Prod_" + IdText(disk.model) +
                 Format("\\5&%08X&0&%02X%02X%02X", Hash(parent.instance) + static_cast<unsigned>(number),
                        disk.channel & 0xFF, disk.target & 0xFF, disk.lun & 0xFF);
  row.hardwareIds = {"SCSI\\Disk" + padded + IdText(disk.revision, 4), "SCSI\\Disk" + padded,
                     "SCSI\\Disk" + IdText(vendor, 8), "SCSI\\" + padded + IdText(disk.revision, 1), "GenDisk"};
  row.compatibleIds = {"SCSI\\Disk", "SCSI\\RAW"};
  return row;
}

}  // namespace

std::vector<DeviceRow> DeviceRows(const Disk &disk, std::size_t number, const RestoredSystem &system) {
  std::vector<DeviceRow> rows;
  const std::vector<PciNode> &nodes = disk.controller.nodes;
  if (nodes.empty()) {
    rows.push_back(OtherController(disk.controller.otherId));
  } else {
    rows.push_back(RootBus(disk.controller.rootBus));
    for (std::size_t i = nodes.size(); i-- > 0;) rows.push_back(PciRow(nodes, i, rows.back().instance));
  }
  const bool early = system.major < 6 || (system.major == 6 && system.minor < 2);
  const bool channel = disk.bus == DiskBus::kIde || (disk.bus == DiskBus::kAta && early && system.major == 6);
  if (channel) rows.push_back(Channel(disk, rows.back()));
  const DeviceRow &parent = rows.back();
  DeviceRow row = channel ? IdeDisk(disk, number, parent) : ScsiDisk(disk, number, parent);
  row.setupClass = "DiskDrive";
  row.parent = parent.instance;
  row.comment = "the disk";
  rows.push_back(std::move(row));
  return rows;
}

std::string DiskInterface(const DeviceRow &disk) {
  std::string path = disk.instance;
  for (char &c : path) {
    if (c == '\\') c = '#';
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return "\\\\?\\" + path + "#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";
}

std::string PlainText(const std::string &text) {
  std::string plain = text;
  std::replace_if(
      plain.begin(), plain.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
  return plain;
}

}  // namespace rescue
