// Reads the TOML file that describes a machine. Each table has a list of its keys; whatever is not on a list, or is of
// another type or out of its range, ends the reading with one line for people.
#include "platform/machine/description/description.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <functional>
#include <string_view>

#include "platform/machine/base/file_kind.h"
#include "platform/machine/description/description_values.h"
#include "platform/machine/description/records.h"
#include "platform/machine/description/setup_class.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace {

namespace fs = std::filesystem;
using machine::Description;
using namespace machine::description;

// --- [system], [names] ----------------------------------------------------------------------------------------------

// X:\ and the like, upper case, from its spellings X: and x:\. Empty when it is none.
std::string DriveRoot(std::string_view text) {
  const bool letter = !text.empty() && machine::IsAsciiLetter(text[0]);
  if (!letter || (text.substr(1) != ":" && text.substr(1) != ":\\")) return "";
  return std::string(1, machine::UpperAscii(text[0])) + ":\\";
}

std::string WindowsDirectory(const Value &value, const TextReader &text) {
  std::string path = text(value);
  while (path.size() > 3 && path.back() == '\\') path.pop_back();
  if (path.size() <= 3 || path.size() >= MAX_PATH || DriveRoot(path.substr(0, 3)).empty() || path[2] != '\\') {
    ThrowFault(value, "must be a directory on a drive, such as 'X:\\Windows', of at most 259 bytes");
  }
  return path;
}

std::int64_t Clock(const Value &value) {
  const auto time = value.node->value_exact<toml::date_time>();
  if (!time || !time->offset)
    ThrowFault(value, "must be a date and time with its offset, such as 2026-11-19T12:00:00Z");
  const std::chrono::sys_days day{std::chrono::year(time->date.year) / time->date.month / time->date.day};
  return std::chrono::seconds(day.time_since_epoch()).count() + time->time.hour * 3600 + time->time.minute * 60 +
         time->time.second - time->offset->minutes * 60;
}

void ReadSystem(const Value &value, const TextReader &text, machine::System *system) {
  const auto readOs = [&](const Value &os) {
    ReadTable(os, {{"major", To(&system->osMajor, kMost32), kRequired},
                   {"minor", To(&system->osMinor, kMost32), kRequired},
                   {"build", To(&system->osBuild, kMost32)},
                   {"platform", To(&system->osPlatform, kMost32)},
                   {"sp_major", To(&system->servicePackMajor, kMost16)},
                   {"sp_minor", To(&system->servicePackMinor, kMost16)},
                   {"suite", To(&system->suite, kMost16)},
                   {"product", To(&system->product, 0xFF)}});
  };
  const auto readProcessor = [&](const Value &processor) {
    ReadTable(processor, {{"count", To(&system->processorCount, 64, 1)},
                          {"architecture", To(&system->processorArchitecture, kMost16)},
                          {"type", To(&system->processorType, kMost32)},
                          {"level", To(&system->processorLevel, kMost16)},
                          {"revision", To(&system->processorRevision, kMost16)}});
  };
  ReadTable(
      value,
      {{"system_directory", [&](const Value &v) { system->systemDirectory = WindowsDirectory(v, text); }, kRequired},
       {"windows_directory", [&](const Value &v) { system->windowsDirectory = WindowsDirectory(v, text); }, kRequired},
       {"os", readOs, kRequired},
       {"processor", readProcessor},
       {"memory", To(&system->memory, kMost64, 1)},
       {"page_size", To(&system->pageSize, kMost32, 1)},
       {"code_page", To(&system->codePage, kMost16)},
       {"language", To(&system->language, kMost16, 1)},
       {"clock", [&](const Value &v) { system->clock = Clock(v); }},
       {"program", [&](const Value &v) { system->program = text(v); }}});
}

// The code page decides how every other text is read.
unsigned ReadCodePage(const toml::table &root) {
  const toml::table *system = root["system"].as_table();
  const toml::node *node = system == nullptr ? nullptr : system->get("code_page");
  if (node == nullptr) return machine::kDefaultCodePage;
  const Value value{node, "system.code_page"};
  const auto codePage = static_cast<unsigned>(Integer(value, 1, kMost16));
  if (!machine::KnownCodePage(codePage)) {
    ThrowFault(value, std::to_string(codePage) + " is not a known ANSI code page; use one such as 1252 or 932");
  }
  return codePage;
}

void ReadNames(const Value &value, const TextReader &text, machine::Names *names) {
  ReadTable(value, {{"computer", text.To(&names->computer)},
                    {"netbios", text.To(&names->netbios)},
                    {"dns_hostname", text.To(&names->dnsHostname)},
                    {"dns_domain", text.To(&names->dnsDomain)},
                    {"dns_fully_qualified", text.To(&names->dnsFullyQualified)},
                    {"physical_netbios", text.To(&names->physicalNetbios)},
                    {"physical_dns_hostname", text.To(&names->physicalDnsHostname)},
                    {"physical_dns_domain", text.To(&names->physicalDnsDomain)},
                    {"physical_dns_fully_qualified", text.To(&names->physicalDnsFullyQualified)}});
}

// --- [[drive]], [[disk]] --------------------------------------------------------------------------------------------

UINT DriveType(const Value &value) {
  constexpr std::pair<const char *, UINT> kTypes[] = {{"fixed", DRIVE_FIXED},         {"cdrom", DRIVE_CDROM},
                                                      {"remote", DRIVE_REMOTE},       {"ramdisk", DRIVE_RAMDISK},
                                                      {"removable", DRIVE_REMOVABLE}, {"no_root", DRIVE_NO_ROOT_DIR}};
  const std::string name = Utf8Text(value);
  for (const auto &[known, type] : kTypes) {
    if (name == known) return type;
  }
  ThrowFault(value, "\"" + name + "\" is no type of drive; use fixed, cdrom, remote, ramdisk, removable or no_root");
}

machine::Extent ReadExtent(const Value &value) {
  machine::Extent extent;
  ReadTable(value, {{"disk", To(&extent.disk, kMost32), kRequired},
                    {"start", To(&extent.start, kMost64), kRequired},
                    {"length", To(&extent.length, kMost64), kRequired}});
  return extent;
}

void ReadDrive(const Value &value, const TextReader &text, Description *description) {
  machine::Drive drive;
  const auto readRoot = [&](const Value &v) {
    drive.root = DriveRoot(Utf8Text(v));
    if (drive.root.empty()) ThrowFault(v, "must be a drive's root, such as 'X:\\'");
    for (const machine::Drive &other : description->drives) {
      if (other.root == drive.root) ThrowFault(v, "drive " + drive.root + " is described twice; remove one of them");
    }
  };
  const auto readPath = [&](const Value &v) { drive.path = HostPath(v, description->file.parent_path(), true); };
  const auto readExtents = [&](const Value &v) {
    ReadArray(v, "tables", [&](const Value &extent) { drive.extents.push_back(ReadExtent(extent)); });
  };
  ReadTable(value, {{"root", readRoot, kRequired},
                    {"type", [&](const Value &v) { drive.type = DriveType(v); }, kRequired},
                    {"path", readPath},
                    {"label", text.To(&drive.label)},
                    {"file_system", text.To(&drive.fileSystem)},
                    {"serial", To(&drive.serial, kMost32)},
                    {"flags", To(&drive.flags, kMost32)},
                    {"max_component", To(&drive.maxComponent, kMost32)},
                    {"guid_path", text.To(&drive.guidPath)},
                    {"device_name", text.To(&drive.deviceName)},
                    {"unique_id", [&](const Value &v) { drive.uniqueId = HexBytes(v); }},
                    {"extents", readExtents}});
  const bool canBeEmpty = drive.type == DRIVE_CDROM || drive.type == DRIVE_REMOVABLE || drive.type == DRIVE_NO_ROOT_DIR;
  if (drive.path.empty() && !canBeEmpty) {
    ThrowFault({value.node, value.key + ".path"}, "is missing; name the host directory that stands for the drive");
  }
  description->drives.push_back(std::move(drive));
}

// The interface names the disk's device, and a device is one disk.
void ReadInterface(const Value &value, const TextReader &text, const Description &description, machine::Disk *disk) {
  disk->interfacePath = text(value);
  for (const machine::Disk &other : description.disks) {
    if (!other.interfacePath.empty() && machine::CompareNoCase(other.interfacePath, disk->interfacePath) == 0) {
      ThrowFault(value,
                 "is that of disk " + std::to_string(other.number) + " too; give each disk its own, or remove one");
    }
  }
}

void ReadDisk(const Value &value, const TextReader &text, Description *description) {
  machine::Disk disk;
  const auto readNumber = [&](const Value &v) {
    disk.number = static_cast<DWORD>(Integer(v, 0, kMost16));
    for (const machine::Disk &other : description->disks) {
      if (other.number == disk.number) {
        ThrowFault(v, "disk " + std::to_string(disk.number) + " is described twice; remove one of them");
      }
    }
  };
  const auto readGeometry = [&](const Value &v) {
    ReadTable(v, {{"cylinders", To(&disk.cylinders, kMost64, 1), kRequired},
                  {"heads", To(&disk.heads, kMost32, 1), kRequired},
                  {"sectors", To(&disk.sectors, kMost32, 1), kRequired},
                  {"bytes", To(&disk.bytes, kMost16 + 1, 1)}});
  };
  ReadTable(value,
            {{"number", readNumber, kRequired},
             {"image", [&](const Value &v) { disk.image = HostPath(v, description->file.parent_path(), false); }},
             {"geometry", readGeometry},
             {"interface", [&](const Value &v) { ReadInterface(v, text, *description, &disk); }}});
  description->disks.push_back(std::move(disk));
}

// --- [[device]] -----------------------------------------------------------------------------------------------------

bool IsBracedGuid(std::string_view text) {
  constexpr std::string_view kForm = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
  return text.size() == kForm.size() && std::equal(text.begin(), text.end(), kForm.begin(), [](char c, char form) {
           return form == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : c == form;
         });
}

void ReadClass(const Value &value, machine::Device *device) {
  const std::string text = Utf8Text(value);
  if (const machine::SetupClass *known = machine::FindSetupClass(text)) {
    device->classGuid = known->guid;
    device->className = known->name;
  } else if (IsBracedGuid(text)) {
    device->classGuid = machine::ToUpper(text);
  } else {
    ThrowFault(value, "\"" + text + "\" is no known class; use a name such as SCSIAdapter or a braced GUID");
  }
}

const machine::Device *FindDevice(const Description &description, const std::string &instance) {
  for (const machine::Device &device : description.devices) {
    if (machine::CompareNoCase(device.instance, instance) == 0) return &device;
  }
  return nullptr;
}

void ReadInstance(const Value &value, const TextReader &text, const Description &description, machine::Device *device) {
  device->instance = text(value);
  const std::string &instance = device->instance;
  const std::size_t first = instance.find('\\'), last = instance.rfind('\\');
  const bool good = first != std::string::npos && first > 0 && last > first + 1 && last + 1 < instance.size() &&
                    instance.find('\\', first + 1) == last;
  if (!good) ThrowFault(value, "must be three parts, such as 'PCI\\VEN_1000&DEV_0030\\3&61AAA01&0&80'");
  if (FindDevice(description, instance) != nullptr) {
    ThrowFault(value, "device " + instance + " is described twice; remove one of them");
  }
}

void ReadDevice(const Value &value, const TextReader &text, Description *description) {
  machine::Device device;
  ReadTable(value, {{"instance", [&](const Value &v) { ReadInstance(v, text, *description, &device); }, kRequired},
                    {"class", [&](const Value &v) { ReadClass(v, &device); }},
                    {"hardware_ids", text.ToList(&device.hardwareIds)},
                    {"compatible_ids", text.ToList(&device.compatibleIds)},
                    {"service", text.To(&device.service)},
                    {"parent", text.To(&device.parent)}});
  description->devices.push_back(std::move(device));
}

// Parents may be described after their children, so they are looked for once all are read. Whoever walks up the parents
// must come to an end.
void CheckParents(const toml::table &root, const Description &description) {
  const toml::array *tables = root["device"].as_array();
  for (std::size_t i = 0; i < description.devices.size(); i++) {
    const machine::Device *device = &description.devices[i];
    if (device->parent.empty()) continue;
    const Value value{tables->get(i)->as_table()->get("parent"), "device.parent"};
    for (std::size_t steps = 0; !device->parent.empty(); steps++) {
      const machine::Device *parent = FindDevice(description, device->parent);
      if (parent == nullptr && steps == 0) {
        ThrowFault(value, "there is no device " + device->parent + "; describe it or remove the key");
      }
      if (parent == nullptr) break;  // told at the device that names it
      if (steps >= description.devices.size()) ThrowFault(value, "the device is its own ancestor; correct the parents");
      device = parent;
    }
  }
}

// --- [[hive]], [registry] -------------------------------------------------------------------------------------------

void CheckRegistryKey(const Value &value, std::string_view key) {
  if (key.empty() || key.front() == '\\' || key.back() == '\\' || key.find("\\\\") != std::string_view::npos) {
    ThrowFault(value,
               "must be a key below HKEY_LOCAL_MACHINE, such as 'SOFTWARE\\Maker', without a backslash at its ends");
  }
}

void ReadHive(const Value &value, const TextReader &text, Description *description) {
  machine::HiveFile hive;
  const auto readKey = [&](const Value &v) {
    hive.key = text(v);
    CheckRegistryKey(v, hive.key);
    for (const machine::HiveFile &other : description->hives) {
      if (machine::CompareNoCase(other.key, hive.key) == 0) {
        ThrowFault(v, "key " + hive.key + " has two hives; remove one of them");
      }
    }
  };
  ReadTable(value, {{"key", readKey, kRequired},
                    {"file", [&](const Value &v) { hive.file = HostPath(v, description->file.parent_path(), false); },
                     kRequired}});
  description->hives.push_back(std::move(hive));
}

machine::RawValue ReadRawValue(const Value &value) {
  const toml::table &table = AsTable(value);
  if (!table.contains("type") && !table.contains("hex")) {
    ThrowFault(value, "is a table without type and hex; quote a key as a whole, as in [registry.'SOFTWARE\\Maker']");
  }
  machine::RawValue raw;
  ReadTable(value, {{"type", To(&raw.type, kMost32), kRequired},
                    {"hex", [&](const Value &v) { raw.bytes = HexBytes(v); }, kRequired}});
  return raw;
}

void ReadRegistryValue(const Value &value, machine::RegistryValue *target) {
  if (value.node->is_string()) {
    target->data = Utf8Text(value);
  } else if (value.node->is_integer()) {
    target->data = static_cast<std::uint32_t>(Integer(value, 0, kMost32));
  } else if (value.node->is_array()) {
    std::vector<std::string> texts;
    ReadArray(value, "texts", [&](const Value &element) {
      texts.push_back(Utf8Text(element));
      if (texts.back().empty()) ThrowFault(element, "holds an empty text, which would end the list; remove it");
    });
    target->data = std::move(texts);
  } else if (value.node->is_table()) {
    target->data = ReadRawValue(value);
  } else {
    ThrowFault(value, "must be a text, a whole number, an array of texts or { type = .., hex = '..' }");
  }
}

void ReadRegistry(const Value &value, const TextReader &text, Description *description) {
  for (const auto &[keyName, keyNode] : AsTable(value)) {
    const Value key{&keyNode, MemberKey(value.key, keyName.str())};
    CheckRegistryKey(key, keyName.str());
    if (AsTable(key).empty()) ThrowFault(key, "has no values; give it one or remove it");
    for (const auto &[name, node] : AsTable(key)) {
      const Value member{&node, MemberKey(key.key, name.str())};
      machine::RegistryValue read;
      read.key = text.Convert(key, std::string(keyName.str()));
      read.name = text.Convert(member, std::string(name.str()));
      ReadRegistryValue(member, &read);
      description->registry.push_back(std::move(read));
    }
  }
}

// --- [prompts], the whole -------------------------------------------------------------------------------------------

void ReadPrompts(const Value &value, const TextReader &text, machine::Prompts *prompts) {
  const auto readAnswers = [&](const Value &v) {
    text.ToList (&prompts->cancelSearch)(v);
    for (const std::string &answer : prompts->cancelSearch) {
      if (answer != "yes" && answer != "no") ThrowFault(v, "\"" + answer + "\" is no answer; use yes or no");
    }
  };
  ReadTable(value, {{"driver_directory", text.ToList(&prompts->driverDirectory)}, {"cancel_search", readAnswers}});
}

// What the file leaves out and another name tells.
void CompleteNames(machine::Names *names) {
  const auto complete = [](std::string *name, const std::string &from) {
    if (name->empty()) *name = from;
  };
  complete(&names->netbios, names->computer);
  complete(&names->dnsHostname, names->computer);
  const std::string domain = names->dnsDomain.empty() ? "" : "." + names->dnsDomain;
  complete(&names->dnsFullyQualified, names->dnsHostname + domain);
  complete(&names->physicalNetbios, names->netbios);
  complete(&names->physicalDnsHostname, names->dnsHostname);
  complete(&names->physicalDnsDomain, names->dnsDomain);
  complete(&names->physicalDnsFullyQualified, names->dnsFullyQualified);
}

void CheckDirectory(const toml::table &root, const char *key, const std::string &path, const Description &description) {
  const std::string drive = DriveRoot(path.substr(0, 3));
  for (const machine::Drive &other : description.drives) {
    if (other.root == drive && !other.path.empty()) return;
  }
  ThrowFault({root["system"][key].node(), MemberKey("system", key)},
             "drive " + drive + " has no [[drive]] with a path; add one");
}

void ReadRoot(const toml::table &root, Description *description) {
  const TextReader text{ReadCodePage(root)};
  const auto each = [&](auto read) {
    return [=, &text](const Value &value) {
      ReadTables(value, [&](const Value &table) { read(table, text, description); });
    };
  };
  ReadTable({&root, ""}, {{"system", [&](const Value &v) { ReadSystem(v, text, &description->system); }, kRequired},
                          {"names", [&](const Value &v) { ReadNames(v, text, &description->names); }},
                          {"drive", each(ReadDrive)},
                          {"disk", each(ReadDisk)},
                          {"device", each(ReadDevice)},
                          {"hive", each(ReadHive)},
                          {"registry", [&](const Value &v) { ReadRegistry(v, text, description); }},
                          {"prompts", [&](const Value &v) { ReadPrompts(v, text, &description->prompts); }}});
  CompleteNames(&description->names);
  CheckDirectory(root, "system_directory", description->system.systemDirectory, *description);
  CheckDirectory(root, "windows_directory", description->system.windowsDirectory, *description);
  CheckParents(root, *description);
}

std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

// What a text is called where a file is called by its path.
constexpr char kTextName[] = "machine";

// Makes the description of what `parse` gives; messages begin with `name`.
machine::Status ReadParsed(const std::function<toml::table()> &parse, const std::string &name, const fs::path &file,
                           Description *description) {
  *description = Description();
  description->file = file;
  try {
    ReadRoot(parse(), description);
    return {};
  } catch (const toml::parse_error &fault) {
    return machine::Status::Refused(OneLine(name + ":" + std::to_string(fault.source().begin.line) +
                                            ": not TOML: " + std::string(fault.description()) + "; correct the line"));
  } catch (const Fault &fault) {
    return machine::Status::Refused(
        OneLine(name + ":" + std::to_string(fault.line) + ": " + fault.key + ": " + fault.text));
  }
}

}  // namespace

namespace machine {

Status ReadDescription(const fs::path &file, Description *description) {
  std::error_code code;
  if (const fs::file_status status = fs::status(file, code); !fs::is_regular_file(status)) {
    std::string what = fs::exists(status) ? FileKind(status.type()) : "there is no such file";
    if (status.type() == fs::file_type::none) what = code.message();
    return Status::Refused(OneLine(file.string() + ": " + what + "; give the path of a machine's TOML file"));
  }
  return ReadParsed([&] { return toml::parse_file(file.string()); }, file.string(), fs::absolute(file, code),
                    description);
}

Status ReadDescriptionText(std::string_view text, const fs::path &directory, Description *description) {
  std::error_code code;
  const fs::path file = fs::absolute((directory.empty() ? "." : directory) / kTextName, code);
  return ReadParsed([&] { return toml::parse(text); }, kTextName, file, description);
}

}  // namespace machine
