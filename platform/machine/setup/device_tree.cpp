#include "platform/machine/setup/device_tree.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

#include "platform/machine/description/current.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/setup/device_set.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

struct DeviceTree {
  NameTable<std::uint32_t> byInstance;
  std::vector<std::uint32_t> diskDevices;  // by disk
  // Read anew when the registry has changed since.
  std::vector<std::optional<GUID>> classes;  // by device; absent where the registry gives none
  std::vector<GUID> present;                 // the classes that some device has
  std::optional<std::uint64_t> readAt;       // RegistryChanges when they were read
};

DeviceTree tree;

// Of a machine's few classes.
bool IsAmong(const std::vector<GUID> &classes, const GUID &sought) {
  return std::any_of(classes.begin(), classes.end(), [&](const GUID &each) { return IsSame(each, sought); });
}

void ReadClasses() {
  if (tree.readAt == RegistryChanges()) return;
  tree.readAt = RegistryChanges();
  tree.classes.clear();
  tree.present.clear();
  for (const Device &device : Current()->devices) {
    std::string text;
    GUID guid;
    const bool known = ReadRegistryText("SYSTEM\\CurrentControlSet\\Enum\\" + device.instance, "ClassGUID", &text) &&
                       ParseGuid(text, &guid);
    tree.classes.push_back(known ? std::optional<GUID>(guid) : std::nullopt);
    if (known && !IsAmong(tree.present, guid)) tree.present.push_back(guid);
  }
}

template <typename Number>
bool ParseHex(std::string_view text, Number *number) {
  const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), *number, 16);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

// An interface path is "\\?\", the instance id with "#" for each backslash, "#" and the interface's GUID.
std::uint32_t DeviceOfInterface(const std::string &path) {
  const std::size_t end = path.rfind('#');
  if (end == std::string::npos || !path.starts_with("\\\\?\\")) return kNoDevice;
  std::string instance = path.substr(4, end < 4 ? 0 : end - 4);
  std::replace(instance.begin(), instance.end(), '#', '\\');
  return FindDevice(instance);
}

}  // namespace

std::uint32_t DeviceOfNode(DEVINST node) {
  return node != 0 && Current() != nullptr && node <= Current()->devices.size() ? node - 1 : kNoDevice;
}

std::uint32_t FindDevice(std::string_view instance) {
  const auto found = tree.byInstance.find(instance);
  return found != tree.byInstance.end() ? found->second : kNoDevice;
}

std::uint32_t DeviceOfDisk(std::size_t disk) { return tree.diskDevices[disk]; }

std::string GuidText(const GUID &guid) {
  char text[39];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2,
                guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
  return text;
}

bool ParseGuid(std::string_view text, GUID *guid) {
  constexpr std::string_view kForm = "{00000000-0000-0000-0000-000000000000}";
  if (text.size() != kForm.size()) return false;
  for (const std::size_t at : {0, 9, 14, 19, 24, 37}) {
    if (text[at] != kForm[at]) return false;
  }
  GUID parsed = {};
  bool good = ParseHex(text.substr(1, 8), &parsed.Data1) && ParseHex(text.substr(10, 4), &parsed.Data2) &&
              ParseHex(text.substr(15, 4), &parsed.Data3);
  for (std::size_t i = 0; i < 8; ++i) {
    good = good && ParseHex(text.substr(i < 2 ? 20 + 2 * i : 21 + 2 * i, 2), &parsed.Data4[i]);
  }
  if (good) *guid = parsed;
  return good;
}

bool ClassOf(std::uint32_t device, GUID *classGuid) {
  ReadClasses();
  const std::optional<GUID> &known = tree.classes[device];
  if (known) *classGuid = *known;
  return known.has_value();
}

bool IsPresentClass(std::string_view classGuid) {
  ReadClasses();
  GUID guid;
  return ParseGuid(classGuid, &guid) && IsAmong(tree.present, guid);
}

void OpenDevices(const Description &description) {
  tree = {};
  for (std::uint32_t device = 0; device < description.devices.size(); ++device) {
    tree.byInstance.try_emplace(description.devices[device].instance, device);
  }
  for (const Disk &disk : description.disks) tree.diskDevices.push_back(DeviceOfInterface(disk.interfacePath));
}

void CloseDevices() {
  CloseDeviceSets();
  tree = {};
}

}  // namespace machine
