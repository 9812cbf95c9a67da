#include "rescue/controller_argument.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace rescue {
namespace {

constexpr std::size_t kLongestId = 199;  // of a device id, by Windows' own limit

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char &c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

// The number behind a name such as "VEN_", of exactly `digits` hexadecimal digits. False when the part begins so and
// goes on otherwise.
bool ReadPart(std::string_view part, std::string_view name, std::size_t digits, std::optional<unsigned> *number) {
  if (!part.starts_with(name)) return false;
  part.remove_prefix(name.size());
  unsigned value = 0;
  const auto [end, failure] = std::from_chars(part.data(), part.data() + part.size(), value, 16);
  if (failure != std::errc() || end != part.data() + part.size() || part.size() != digits) return false;
  *number = value;
  return true;
}

// Of one part between ampersands; false for one that no PCI id has.
bool TakePart(std::string_view part, PciFunction *function, std::optional<unsigned> *vendor,
              std::optional<unsigned> *device) {
  std::optional<unsigned> subsystem, shortClass;
  if (ReadPart(part, "VEN_", 4, vendor) || ReadPart(part, "DEV_", 4, device)) return true;
  if (ReadPart(part, "REV_", 2, &function->revision)) return true;
  if (ReadPart(part, "SUBSYS_", 8, &subsystem)) {
    function->subsystemDevice = *subsystem >> 16;
    function->subsystemVendor = *subsystem & 0xFFFF;
    return true;
  }
  if (ReadPart(part, "CC_", 6, &function->classCode)) {
    function->hasInterface = true;
    return true;
  }
  if (!ReadPart(part, "CC_", 4, &shortClass)) return false;
  function->classCode = *shortClass << 8;
  return true;
}

bool ParsePciId(std::string_view id, PciFunction *function) {
  std::optional<unsigned> vendor, device;
  for (std::size_t begin = 0; begin <= id.size();) {
    const std::size_t end = std::min(id.find('&', begin), id.size());
    if (!TakePart(id.substr(begin, end - begin), function, &vendor, &device)) return false;
    begin = end + 1;
  }
  if (!vendor || !device) return false;
  function->vendor = *vendor;
  function->device = *device;
  return true;
}

// An id of any bus: an enumerator, a backslash, something behind it.
bool IsDeviceId(const std::string &text) {
  const std::size_t slash = text.find('\\');
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7F && c != ','; });
  return plain && slash != 0 && slash != std::string::npos && slash + 1 < text.size() && text.size() <= kLongestId;
}

machine::Status ReadController(const std::string &text, ControllerPath *controller) {
  constexpr std::string_view kPci = "PCI\\";
  PciFunction function;
  const std::string upper = Upper(text);
  if (upper.starts_with(kPci)) {
    // A whole instance id may be given: what stands behind its second backslash only tells one such device from
    // another.
    const std::string_view id = std::string_view(upper).substr(kPci.size());
    if (!ParsePciId(id.substr(0, id.find('\\')), &function)) {
      return machine::Status::Refused(text +
                                      ": is no id of a PCI device; give one such as PCI\\VEN_1000&DEV_0054, with "
                                      "&SUBSYS_..., &REV_.. and &CC_.... as far as they are known");
    }
  } else if (!ParsePciFunction(text, &function)) {
    if (IsDeviceId(text)) {
      controller->otherId = text;
      return {};
    }
    return machine::Status::Refused(text +
                                    ": names no controller; give an id such as PCI\\VEN_1000&DEV_0054, or numbers such "
                                    "as 1000:0054 with the class behind them, 1000:0054 0107");
  }
  controller->nodes.push_back({function, "0000:00:10.0", ""});
  controller->rootBus = "PNP0A08";
  return {};
}

DiskBus BusOf(const ControllerPath &controller) {
  const unsigned code = controller.nodes.empty() ? 0 : controller.nodes.front().function.classCode.value_or(0);
  switch (code >> 8) {
    case 0x0101:
      return DiskBus::kIde;
    case 0x0106:
      return DiskBus::kAta;
    case 0x0108:
      return DiskBus::kNvme;
    default:
      return DiskBus::kScsi;
  }
}

bool IsClass(const std::string &text) {
  PciFunction function;
  return ParsePciFunction("0000:0000 " + text, &function);
}

}  // namespace

machine::Status DisksToCome(const std::vector<std::string> &arguments, std::vector<Disk> *disks) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    std::string text = arguments[i];
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    const bool numbers = IsPciFunction(text) && text.find(' ') == std::string::npos;
    if (numbers && i + 1 < arguments.size() && IsClass(arguments[i + 1])) text += " " + arguments[++i];
    Disk disk;
    disk.name = "controller " + std::to_string(disks->size() + 1);
    disk.vendor = "ANY";
    disk.model = "DISK " + std::to_string(disks->size() + 1);
    if (machine::Status read = ReadController(text, &disk.controller); !read) return read;
    disk.bus = BusOf(disk.controller);
    // Several of one kind must not count as one device.
    std::vector<PciNode> &nodes = disk.controller.nodes;
    if (!nodes.empty()) nodes.front().address.replace(8, 2, std::to_string(10 + disks->size()));
    disks->push_back(std::move(disk));
  }
  return {};
}

}  // namespace rescue
