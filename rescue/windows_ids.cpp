#include "rescue/windows_ids.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "rescue/format.h"

namespace rescue {
namespace {

std::optional<unsigned> Hexadecimal(std::string_view digits, std::size_t length) {
  unsigned number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  const bool whole = failure == std::errc() && end == digits.data() + digits.size() && digits.size() == length;
  return whole ? std::optional(number) : std::nullopt;
}

// The numbers between colons: vendor, device, then both halves of the subsystem, then the revision.
bool ReadNumbers(std::string_view text, PciFunction *function) {
  std::optional<unsigned> numbers[5];
  std::size_t count = 0;
  for (bool more = true; more; ++count) {
    if (count == std::size(numbers)) return false;
    const std::size_t end = text.find(':');
    numbers[count] = Hexadecimal(text.substr(0, end), count == 4 ? 2 : 4);
    if (!numbers[count]) return false;
    more = end != std::string_view::npos;
    text.remove_prefix(more ? end + 1 : text.size());
  }
  if (count < 2 || count == 3) return false;
  function->vendor = *numbers[0];
  function->device = *numbers[1];
  function->subsystemVendor = numbers[2];
  function->subsystemDevice = numbers[3];
  function->revision = numbers[4];
  return true;
}

bool ReadClass(std::string_view text, PciFunction *function) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  function->hasInterface = text.size() == 6;
  function->classCode = Hexadecimal(text, function->hasInterface ? 6 : 4);
  if (function->classCode && !function->hasInterface) *function->classCode <<= 8;
  return function->classCode.has_value();
}

// The ids with a class behind `prefix`, the interface first.
void AddClassIds(const PciFunction &function, const std::string &prefix, std::vector<std::string> *ids) {
  if (!function.classCode) return;
  if (function.hasInterface) ids->push_back(prefix + Format("CC_%06X", *function.classCode));
  ids->push_back(prefix + Format("CC_%04X", *function.classCode >> 8));
}

}  // namespace

bool ParsePciFunction(const std::string &text, PciFunction *function) {
  *function = {};
  const std::size_t blank = text.find(' ');
  const std::string_view numbers = std::string_view(text).substr(0, blank);
  if (!ReadNumbers(numbers, function)) return false;
  if (blank == std::string::npos) return true;
  std::string_view rest = std::string_view(text).substr(blank);
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  return ReadClass(rest, function);
}

bool IsPciFunction(const std::string &text) {
  PciFunction function;
  return ParsePciFunction(text, &function);
}

std::vector<std::string> HardwareIds(const PciFunction &function) {
  const std::string device = Format("PCI\\VEN_%04X&DEV_%04X", function.vendor, function.device);
  std::vector<std::string> ids;
  if (function.subsystemVendor) {
    const std::string subsystem =
        device + Format("&SUBSYS_%04X%04X", *function.subsystemDevice, *function.subsystemVendor);
    if (function.revision) ids.push_back(subsystem + Format("&REV_%02X", *function.revision));
    ids.push_back(subsystem);
  }
  AddClassIds(function, device + "&", &ids);
  if (ids.empty()) ids.push_back(device);
  return ids;
}

std::vector<std::string> CompatibleIds(const PciFunction &function) {
  const std::string vendor = Format("PCI\\VEN_%04X", function.vendor);
  const std::string device = vendor + Format("&DEV_%04X", function.device);
  std::vector<std::string> ids;
  if (function.revision) ids.push_back(device + Format("&REV_%02X", *function.revision));
  ids.push_back(device);
  AddClassIds(function, vendor + "&", &ids);
  ids.push_back(vendor);
  AddClassIds(function, "PCI\\", &ids);
  return ids;
}

const char *SetupClass(const PciFunction &function) {
  const unsigned kind = function.classCode.value_or(0) >> 8;
  if (kind >> 8 == 0x06) return "{4D36E97D-E325-11CE-BFC1-08002BE10318}";
  return kind == 0x0101 || kind == 0x0106 ? "hdc" : "SCSIAdapter";
}

}  // namespace rescue
