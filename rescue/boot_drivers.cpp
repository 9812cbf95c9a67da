#include "rescue/boot_drivers.h"

#include <algorithm>
#include <charconv>

#include "platform/machine/hive/hive.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"
#include "rescue/disk_names.h"
#include "rescue/system_files.h"

namespace rescue {
namespace {

using machine::Hive;
using machine::Status;

constexpr std::uint32_t kBootStart = 0, kKernelDriver = 1, kFileSystemDriver = 2;

std::vector<std::u16string> Keys(Hive *hive, const std::u16string &path) {
  std::vector<std::u16string> names;
  if (!machine::ListHiveKeys(hive, machine::ParseKeyPath(path), &names)) names.clear();
  return names;
}

std::string Utf8(const std::u16string &text) { return machine::Utf16ToUtf8(text); }

// --- Drivers ---------------------------------------------------------------------------------------------------------

// Names of directories between slashes; false for a path that leads elsewhere.
bool SplitPath(std::string text, std::vector<std::string> *names) {
  std::replace(text.begin(), text.end(), '\\', '/');
  for (const std::filesystem::path &part : std::filesystem::path(text)) {
    if (part == "..") return false;
    if (!part.empty() && part != "." && part != "/") names->push_back(part.string());
  }
  return !names->empty();
}

std::filesystem::path Descend(std::filesystem::path place, const std::vector<std::string> &names) {
  for (const std::string &name : names) {
    place = FindBelow(place, {name.c_str()});
    if (place.empty()) break;
  }
  return place;
}

bool DropPrefix(std::string *text, std::string_view prefix) {
  if (text->size() < prefix.size() || !machine::SameUtf8(text->substr(0, prefix.size()), prefix)) return false;
  text->erase(0, prefix.size());
  return true;
}

// Where the hive's name of an image leads: "system32\drivers\x.sys" and "\SystemRoot\..." are below the Windows
// directory, "\??\C:\..." on a volume, of which only the system's own is here.
std::filesystem::path ImageFile(const RestoredSystem &system, const BootDriver &driver) {
  std::string image = driver.image.empty() ? "System32\\drivers\\" + driver.service + ".sys" : driver.image;
  std::filesystem::path from = system.windows;
  DropPrefix(&image, "\\??\\");
  if (image.size() > 2 && image[1] == ':') {
    if (machine::UpperAscii(image[0]) != system.drive) return {};
    image.erase(0, 2);
    from = system.volume;
  } else if (!DropPrefix(&image, "\\SystemRoot\\")) {
    DropPrefix(&image, "%SystemRoot%\\");
  }
  std::vector<std::string> names;
  return SplitPath(image, &names) ? Descend(from, names) : std::filesystem::path();
}

void ReadDriverFile(const RestoredSystem &system, BootDriver *driver) {
  driver->file = ImageFile(system, *driver);
  ImageFacts facts;
  if (driver->file.empty() || !ReadImage(driver->file, &facts)) return;
  driver->architecture = facts.architecture;
  if (facts.version) {
    driver->version = Text(*facts.version) + "." + std::to_string(facts.build) + "." + std::to_string(facts.revision);
  }
}

void ReadDrivers(const RestoredSystem &system, Hive *hive, std::vector<BootDriver> *drivers) {
  const std::u16string services = ControlSetName(system.controlSet) + u"\\Services";
  for (const std::u16string &name : Keys(hive, services)) {
    const std::u16string key = services + u"\\" + name;
    const std::uint32_t type = ReadHiveNumber(hive, key, u"Type").value_or(0);
    if (type != kKernelDriver && type != kFileSystemDriver) continue;
    if (ReadHiveNumber(hive, key, u"Start") != kBootStart) continue;
    BootDriver driver;
    driver.service = Utf8(name);
    driver.group = ReadHiveText(hive, key, u"Group").value_or("");
    driver.image = ReadHiveText(hive, key, u"ImagePath").value_or("");
    driver.startOverride = ReadHiveNumber(hive, key + u"\\StartOverride", u"0");
    ReadDriverFile(system, &driver);
    drivers->push_back(std::move(driver));
  }
  std::sort(drivers->begin(), drivers->end(), [](const BootDriver &a, const BootDriver &b) {
    return machine::FoldAnsiName(a.service) < machine::FoldAnsiName(b.service);
  });
}

// --- Devices ---------------------------------------------------------------------------------------------------------

constexpr char16_t kDeviceIds[] = u"DriverDatabase\\DeviceIds";

std::u16string CriticalDevices(const RestoredSystem &system) {
  return ControlSetName(system.controlSet) + u"\\Control\\CriticalDeviceDatabase";
}

BootDevice CriticalDevice(const RestoredSystem &system, Hive *hive, const std::string &id) {
  std::string key = id;
  std::replace(key.begin(), key.end(), '\\', '#');
  const std::u16string path = CriticalDevices(system) + u"\\" + machine::Utf8ToUtf16(key);
  return {id, ReadHiveText(hive, path, u"Service").value_or(""), ""};
}

// The service that a driver package gives an id.
std::string PackageService(Hive *hive, const std::u16string &inf, const std::u16string &id) {
  const std::u16string file = u"DriverDatabase\\DriverInfFiles\\" + inf;
  const auto active = ReadHiveText(hive, file, u"Active");
  if (!active) return "";
  const std::u16string package = u"DriverDatabase\\DriverPackages\\" + machine::Utf8ToUtf16(*active);
  const auto section = ReadHiveText(hive, package + u"\\Descriptors\\" + id, u"Configuration");
  if (!section) return "";
  return ReadHiveText(hive, package + u"\\Configurations\\" + machine::Utf8ToUtf16(*section), u"Service").value_or("");
}

void DatabaseDevices(Hive *hive, const std::string &text, std::vector<BootDevice> *devices) {
  const std::u16string id = machine::Utf8ToUtf16(text);
  std::vector<machine::StoredValue> values;
  const machine::KeyPath key = machine::ParseKeyPath(std::u16string(kDeviceIds) + u"\\" + id);
  if (!machine::ListHiveValues(hive, key, &values) || values.empty()) return devices->push_back({text, "", ""});
  for (const machine::StoredValue &value : values) {
    devices->push_back({text, PackageService(hive, value.name, id), Utf8(value.name)});
  }
}

// The ids of a database: those directly below it, which name classes too, and those of each bus.
std::uint64_t CountDeviceIds(Hive *hive) {
  std::uint64_t count = 0;
  for (const std::u16string &name : Keys(hive, kDeviceIds)) {
    if (name.starts_with(u"{")) continue;
    const std::size_t below = Keys(hive, std::u16string(kDeviceIds) + u"\\" + name).size();
    count += below == 0 ? 1 : below;
  }
  return count;
}

// --- Control sets ----------------------------------------------------------------------------------------------------

void ReadControlSets(Hive *hive, BootState *state) {
  constexpr std::u16string_view kPrefix = u"ControlSet";
  for (const std::u16string &name : Keys(hive, u"")) {
    if (!name.starts_with(kPrefix)) continue;
    const std::string digits = Utf8(name.substr(kPrefix.size()));
    std::uint32_t number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (read.ec == std::errc() && read.ptr == digits.data() + digits.size()) state->controlSets.push_back(number);
  }
  std::sort(state->controlSets.begin(), state->controlSets.end());
  state->current = ReadHiveNumber(hive, u"Select", u"Current");
  state->standard = ReadHiveNumber(hive, u"Select", u"Default");
  state->failed = ReadHiveNumber(hive, u"Select", u"Failed");
  state->lastKnownGood = ReadHiveNumber(hive, u"Select", u"LastKnownGood");
}

}  // namespace

Status ReadBootState(const RestoredSystem &system, const std::vector<std::string> &ids, BootState *state) {
  Hive hive;
  if (Status opened = machine::OpenHiveFile(&hive, system.systemHive, machine::HiveUse::kLook); !opened) {
    return Status::Refused(system.systemHive.string() + " " + RestoredHiveWords(opened));
  }
  ReadControlSets(&hive, state);
  ReadDrivers(system, &hive, &state->drivers);
  state->devices = system.driverDatabase ? CountDeviceIds(&hive) : Keys(&hive, CriticalDevices(system)).size();
  for (const std::string &id : ids) {
    if (system.driverDatabase) {
      DatabaseDevices(&hive, id, &state->asked);
    } else {
      state->asked.push_back(CriticalDevice(system, &hive, id));
    }
  }
  return {};
}

}  // namespace rescue
