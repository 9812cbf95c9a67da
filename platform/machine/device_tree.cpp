#include "platform/machine/device_tree.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "platform/machine/code_page.h"
#include "platform/machine/device_set.h"
#include "platform/machine/inf_file.h"
#include "platform/machine/registry.h"

namespace machine {
namespace {

struct DeviceTree {
  std::unordered_map<std::string, std::uint32_t> byInstance;      // upper case
  std::unordered_map<std::string, std::size_t> disksByInterface;  // upper case
  // Read anew when the registry has changed since.
  std::vector<std::optional<GUID>> classes;  // by device; absent where the registry gives none
  std::unordered_set<std::string> present;   // the classes that some device has, upper case
  std::optional<std::uint64_t> readAt;       // RegistryChanges when they were read
};

DeviceTree tree;

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
    if (known) tree.present.insert(GuidText(guid));
  }
}

template <typename Number>
bool ParseHex(std::string_view text, Number *number) {
  const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), *number, 16);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

}  // namespace

std::uint32_t DeviceOfNode(DEVINST node) {
  return node != 0 && Current() != nullptr && node <= Current()->devices.size() ? node - 1 : kNoDevice;
}

std::uint32_t FindDevice(std::string_view instance) {
  const auto found = tree.byInstance.find(ToUpper(instance));
  return found != tree.byInstance.end() ? found->second : kNoDevice;
}

const Disk *FindDiskByInterface(std::string_view path) {
  const auto found = tree.disksByInterface.find(ToUpper(path));
  return found != tree.disksByInterface.end() ? &Current()->disks[found->second] : nullptr;
}

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
  return tree.present.contains(FoldedName(classGuid));
}

void OpenDevices(const Description &description) {
  tree = {};
  for (std::uint32_t device = 0; device < description.devices.size(); ++device) {
    tree.byInstance.try_emplace(ToUpper(description.devices[device].instance), device);
  }
  for (std::size_t disk = 0; disk < description.disks.size(); ++disk) {
    const std::string &path = description.disks[disk].interfacePath;
    if (!path.empty()) tree.disksByInterface.try_emplace(ToUpper(path), disk);
  }
}

void CloseDevices() {
  CloseDeviceSets();
  tree = {};
}

}  // namespace machine
