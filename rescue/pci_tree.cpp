#include "rescue/pci_tree.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "rescue/sysfs.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;

// "0000:00:1f.2" as one number, by which addresses are in Windows' order.
std::optional<std::uint64_t> AddressNumber(std::string_view address) {
  std::uint64_t domain = 0, bus = 0, device = 0, function = 0;
  const bool whole = TakeNumber(&address, 16, ':', &domain) && TakeNumber(&address, 16, ':', &bus) &&
                     TakeNumber(&address, 16, '.', &device) && TakeNumber(&address, 16, 0, &function);
  if (!whole || domain > 0xFFFFFFFF || bus > 0xFF || device > 0x1F || function > 7) return std::nullopt;
  return domain << 16 | bus << 8 | device << 3 | function;
}

// "pci0000:00"
bool IsRootBus(std::string_view name) {
  if (!name.starts_with("pci")) return false;
  name.remove_prefix(3);
  std::uint64_t domain = 0, bus = 0;
  return TakeNumber(&name, 16, ':', &domain) && TakeNumber(&name, 16, 0, &bus);
}

std::string LastPart(const std::string &path) { return path.substr(path.rfind('/') + 1); }

std::optional<unsigned> ReadLimited(const fs::path &sysfs, const std::string &path, std::uint64_t most) {
  const std::optional<std::uint64_t> number = ReadNumber(sysfs, path);
  return number && *number <= most ? std::optional(static_cast<unsigned>(*number)) : std::nullopt;
}

bool IsBridge(const PciFunction &function) { return function.classCode.value_or(0) >> 16 == 0x06; }

std::optional<PciNode> ReadPciNode(const fs::path &sysfs, const std::string &node) {
  const std::optional<unsigned> vendor = ReadLimited(sysfs, node + "/vendor", 0xFFFF),
                                device = ReadLimited(sysfs, node + "/device", 0xFFFF);
  if (!vendor || !device) return std::nullopt;
  PciNode read;
  read.address = LastPart(node);
  read.driver = Showable(LastPart(LinkText(sysfs, node + "/driver")));
  PciFunction &function = read.function;
  function.vendor = *vendor;
  function.device = *device;
  function.revision = ReadLimited(sysfs, node + "/revision", 0xFF);
  function.classCode = ReadLimited(sysfs, node + "/class", 0xFFFFFF);
  function.hasInterface = function.classCode.has_value();
  function.subsystemVendor = ReadLimited(sysfs, node + "/subsystem_vendor", 0xFFFF);
  function.subsystemDevice = ReadLimited(sysfs, node + "/subsystem_device", 0xFFFF);
  if (!function.subsystemVendor || !function.subsystemDevice) {
    // Most bridges have none, and Windows lists them with zeros.
    const std::optional<unsigned> none = IsBridge(function) ? std::optional(0U) : std::nullopt;
    function.subsystemVendor = function.subsystemDevice = none;
  }
  return read;
}

std::string AcpiNameIn(const std::string &link) {
  for (const std::string &part : PathParts(link)) {
    for (const char *name : {"PNP0A08", "PNP0A03"}) {
      if (part.starts_with(name + std::string(":"))) return name;
    }
  }
  return {};
}

bool IsExpressPort(const fs::path &sysfs, const std::string &node) {
  const std::optional<PciNode> read = ReadPciNode(sysfs, node);
  return read && read->function.classCode.value_or(0) >> 8 == 0x0604 &&
         (read->driver == "pcieport" || !ResolveNode(sysfs, node + "/max_link_speed").empty());
}

// ACPI's name for a root bus is a part of the path of every node of its firmware below it. Firmware calls a bus that
// begins PCI Express ports PNP0A08, which also says that it can all of PNP0A03; so where the kernel shows no ACPI the
// ports tell which of both the firmware would say.
std::string RootBusName(const fs::path &sysfs, const std::string &rootBus) {
  std::vector<std::string> nodes = {rootBus};
  for (const std::string &name : ListNames(sysfs, rootBus)) {
    if (AddressNumber(name)) nodes.push_back(rootBus + '/' + name);
  }
  for (const std::string &node : nodes) {
    const std::string name = AcpiNameIn(LinkText(sysfs, node + "/firmware_node"));
    if (!name.empty()) return name;
  }
  const bool express =
      std::any_of(nodes.begin(), nodes.end(), [&sysfs](const std::string &node) { return IsExpressPort(sysfs, node); });
  return express ? "PNP0A08" : "PNP0A03";
}

}  // namespace

DevicePlace PlaceOf(const std::string &node) {
  DevicePlace place;
  std::string path;
  for (const std::string &part : PathParts(node)) {
    path += path.empty() ? part : '/' + part;
    if (place.rootBus.empty() && IsRootBus(part)) {
      place.rootBus = path;
      place.below.clear();
    } else if (!place.rootBus.empty() && place.below.empty() && AddressNumber(part)) {
      place.functions.push_back(path);
    } else {
      place.below.push_back(part);
    }
  }
  return place;
}

bool HidesBuses(const DevicePlace &place) {
  return !place.functions.empty() && !place.below.empty() && IsRootBus(place.below.front());
}

ControllerPath ReadControllerPath(const fs::path &sysfs, const DevicePlace &place) {
  ControllerPath path;
  for (auto node = place.functions.rbegin(); node != place.functions.rend(); ++node) {
    std::optional<PciNode> read = ReadPciNode(sysfs, *node);
    if (!read) return {};
    path.nodes.push_back(std::move(*read));
  }
  if (!path.nodes.empty()) path.rootBus = RootBusName(sysfs, place.rootBus);
  return path;
}

std::vector<PciNode> ListPciFunctions(const fs::path &sysfs) {
  std::vector<PciNode> functions;
  for (const std::string &name : ListNames(sysfs, "bus/pci/devices")) {
    std::optional<PciNode> read = ReadPciNode(sysfs, "bus/pci/devices/" + name);
    if (read && AddressNumber(name)) functions.push_back(std::move(*read));
  }
  std::sort(functions.begin(), functions.end(),
            [](const PciNode &a, const PciNode &b) { return AddressNumber(a.address) < AddressNumber(b.address); });
  return functions;
}

}  // namespace rescue
