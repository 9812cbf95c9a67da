#include "registry/boot_record.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "engine/base/strings.h"
#include "log/dump.h"
#include "platform/architecture.h"
#include "platform/inf/inf_file.h"
#include "registry/edit_keys.h"
#include "registry/published_name.h"

namespace {

constexpr std::size_t kPackageInfMax = 200;   // leaves room for the architecture and the digits behind it
constexpr DWORD kStorageScope = 7;            // what systems have for every storage driver
constexpr DWORD kSignedByMaker = 0x0F000000;  // SIGNERSCORE_AUTHENTICODE
constexpr DWORD kLastCompatiblePosition = 0xFFFF;

std::string BracedGuid(const GUID &guid) { return '{' + std::string(FormatGuid(guid).text) + '}'; }

std::string Lower(std::string text) {
  VXREng_StrLwr(text.data());
  return text;
}

// A name with "#" for each "\", which would make two keys of it.
std::string OneKey(std::string name) {
  for (char *at = name.data(); (at = VXREng_StrChr(at, '\\')) != nullptr;) *at = '#';
  return name;
}

void SetText(RegistryEdits *edits, const std::string &key, const char *name, const std::string &text) {
  if (!text.empty()) SetValue(edits, key, name, TextData(text));
}

void SetList(RegistryEdits *edits, const std::string &key, const char *name, const std::vector<std::string> &texts) {
  if (!texts.empty()) SetValue(edits, key, name, ListData(texts));
}

// The key is to have these filters and no others: one of an earlier driver could be gone.
void ReplaceFilters(RegistryEdits *edits, const std::string &key, const BootRecord &record) {
  const struct {
    const char *name;
    const std::vector<std::string> &filters;
  } lists[] = {{"UpperFilters", record.upperFilters}, {"LowerFilters", record.lowerFilters}};
  for (const auto &[name, filters] : lists) {
    if (filters.empty()) {
      DeleteValue(edits, key, name);
    } else {
      SetValue(edits, key, name, ListData(filters));
    }
  }
}

void AppendNumber(std::string *bytes, DWORD64 number, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes->push_back(static_cast<char>(number >> 8 * i & 0xFF));
}

std::string GuidBytes(const GUID &guid) {
  std::string bytes;
  AppendNumber(&bytes, guid.Data1, sizeof guid.Data1);
  AppendNumber(&bytes, guid.Data2, sizeof guid.Data2);
  AppendNumber(&bytes, guid.Data3, sizeof guid.Data3);
  for (const BYTE byte : guid.Data4) bytes.push_back(static_cast<char>(byte));
  return bytes;
}

// Sixteen digits for the package. Windows takes a hash of all its files, which cannot be had offline; what matters is
// that the same package gets the same digits again, and another one, or another section, others.
std::string PackageDigits(const BootRecord &record) {
  std::string identity;
  for (const std::string *text : {&record.infName, &record.catalog, &record.section, &record.service}) {
    identity += machine::FoldAnsiName(*text) + '\0';
  }
  identity += GuidBytes(record.classGuid);
  AppendNumber(&identity, record.architecture, sizeof record.architecture);
  AppendNumber(&identity, record.date, sizeof record.date);
  AppendNumber(&identity, record.version, sizeof record.version);
  DWORD64 hash = 0xCBF29CE484222325;  // FNV-1a
  for (const char byte : identity) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

std::string PackageName(const BootRecord &record) {
  const char *architecture = ArchitectureName(record.architecture);
  return Lower(OneKey(record.infName.substr(0, kPackageInfMax))) + '_' +
         (architecture != nullptr ? architecture : "amd64") + '_' + PackageDigits(record);
}

std::string SectionKey(const BootRecord &record) { return OneKey(record.section.substr(0, kKeyNameMax)); }

// Whether the database has the package, and under which name.
bool FindPublishedName(const RegistryEdits &edits, const std::string &package, std::string *name) {
  std::string active;
  return ReadText(edits, kDatabasePackages + package, "", name) && IsPublishedName(*name) &&
         ReadText(edits, kDatabaseInfFiles + *name, "Active", &active) && machine::SameName(active, package);
}

// 48 bytes: whose the package is (0xFF in the first byte: Windows' own), architecture, class, date, version, and eight
// of unknown meaning that most packages have as zeros.
std::string VersionBytes(const BootRecord &record) {
  std::string bytes("\x00\xFF", 2);
  AppendNumber(&bytes, record.architecture, 2);
  bytes.append(4, '\0');
  bytes += GuidBytes(record.classGuid);
  AppendNumber(&bytes, record.date, 8);
  AppendNumber(&bytes, record.version, 8);
  return bytes.append(8, '\0');
}

// A text as the database keeps it: its tokens in lower case, like the names of its strings.
std::string LowerTokens(const std::string &text) {
  std::string result = text;
  std::size_t begin = result.find('%');
  while (begin != std::string::npos) {
    const std::size_t end = result.find('%', begin + 1);
    if (end == std::string::npos) break;
    result.replace(begin, end - begin, Lower(result.substr(begin, end - begin)));
    begin = result.find('%', end + 1);
  }
  return result;
}

// Whether this is the first of the ids with that text.
bool FirstOfName(const std::vector<BootRecordId> &ids, const BootRecordId &id) {
  for (const BootRecordId &other : ids) {
    if (&other == &id) return true;
    if (machine::SameName(other.id, id.id)) return false;
  }
  return true;
}

// The ids that can be key paths, each once.
std::vector<BootRecordId> KeyIds(const BootRecord &record) {
  std::vector<BootRecordId> ids;
  for (const BootRecordId &id : record.ids) {
    if (PlainKeyPath(id.id) && FirstOfName(record.ids, id)) ids.push_back(id);
  }
  return ids;
}

// Which of the line's ids it is (1 the hardware id, 2 one of the compatible ones), feature score, which of the
// compatible ones.
std::string IdBytes(const BootRecordId &id, DWORD featureScore) {
  std::string bytes;
  AppendNumber(&bytes, id.position == 0 ? 1 : 2, 1);
  AppendNumber(&bytes, featureScore, 1);
  AppendNumber(&bytes, id.position == 0 ? 0 : std::min<std::size_t>(id.position - 1, kLastCompatiblePosition), 2);
  return bytes;
}

void PlanIds(const BootRecord &record, const std::string &publishedName, RegistryEdits *edits) {
  for (const BootRecordId &id : KeyIds(record)) {
    SetValue(edits, kDatabaseDeviceIds + id.id, publishedName, BytesData(IdBytes(id, record.featureScore)));
  }
  SetValue(edits, kDatabaseDeviceIds + Lower(BracedGuid(record.classGuid)), publishedName, BytesData({}, REG_NONE));
}

// The package's own values. Two that real packages have are missing or cautious: of StatusFlags no bit is known, and
// packages without it are as good; a SignerScore is what Windows found when it verified a signature, which nobody did
// here. Without one the package would rank behind every signed one for an id that both list, so that the kernel could
// take a driver other than the one chosen, and held back; so a package with a catalogue is given the least score of
// those that Windows takes for equal. Whether the driver may be loaded the kernel judges by the file alone.
void PlanPackageValues(const BootRecord &record, const std::string &publishedName, const std::string &key,
                       RegistryEdits *edits) {
  SetText(edits, key, "", publishedName);
  SetValue(edits, key, "Version", BytesData(VersionBytes(record)));
  SetText(edits, key, "Provider", record.provider);
  SetText(edits, key, "InfName", record.infName);
  SetText(edits, key, "OemPath", record.infPath);
  SetText(edits, key, "Catalog", record.catalog);
  if (!record.catalog.empty()) SetValue(edits, key, "SignerScore", NumberData(kSignedByMaker));
  for (const auto &[name, text] : record.strings) {
    if (!name.empty()) SetValue(edits, key + "\\Strings", Lower(name), TextData(text));
  }
}

// Makes a change of a key below the configuration's.
void PlanEdit(const RegistryEdit &edit, const std::string &configuration, RegistryEdits *edits) {
  if (!PlainKeyPath(edit.key)) return;
  const std::string key = configuration + '\\' + edit.key;
  switch (edit.kind) {
    case RegistryEdit::Kind::kCreateKey:
      CreateKey(edits, key);
      break;
    case RegistryEdit::Kind::kSetValue:
      SetValue(edits, key, edit.name, edit.data);
      break;
    case RegistryEdit::Kind::kDeleteValue:
      DeleteValue(edits, key, edit.name);
      break;
    case RegistryEdit::Kind::kDeleteKey:
      DeleteKey(edits, key);
      break;
  }
}

void PlanConfiguration(const BootRecord &record, const std::string &key, RegistryEdits *edits) {
  for (const RegistryEdit &edit : record.configuration) PlanEdit(edit, key, edits);
  SetText(edits, key, "Service", record.service);
  SetValue(edits, key, "ConfigFlags", NumberData(0));
  if (record.configScope) SetValue(edits, key, "ConfigScope", NumberData(kStorageScope));
  SetList(edits, key, "IncludedInfs", record.includes);
  ReplaceFilters(edits, key, record);
}

void PlanDatabaseRecord(const BootRecord &record, const std::string &package, const std::string &publishedName,
                        RegistryEdits *edits) {
  const std::string section = SectionKey(record);
  const std::string infKey = kDatabaseInfFiles + publishedName;
  SetValue(edits, infKey, "", ListData({package}));
  SetText(edits, infKey, "Active", package);
  SetList(edits, infKey, "Configurations", {section});
  PlanIds(record, publishedName, edits);
  const std::string key = kDatabasePackages + package;
  PlanPackageValues(record, publishedName, key, edits);
  PlanConfiguration(record, key + "\\Configurations\\" + section, edits);
  for (const BootRecordId &id : KeyIds(record)) {
    const std::string descriptor = key + "\\Descriptors\\" + id.id;
    SetText(edits, descriptor, "Configuration", section);
    SetText(edits, descriptor, "Description", LowerTokens(record.description));
    SetText(edits, descriptor, "Manufacturer", LowerTokens(record.manufacturer));
  }
}

}  // namespace

bool PlainKeyName(const std::string &name) {
  return !name.empty() && name.size() <= kKeyNameMax && name.find('\0') == std::string::npos &&
         VXREng_StrChr(name.c_str(), '\\') == nullptr;
}

bool PlainKeyPath(const std::string &path) {
  for (const char *part = path.c_str();;) {
    const char *end = VXREng_StrChr(part, '\\');
    if (!PlainKeyName(end != nullptr ? std::string(part, end) : std::string(part))) return false;
    if (end == nullptr) return part + std::strlen(part) == path.c_str() + path.size();
    part = end + 1;
  }
}

std::string CriticalDeviceKey(const std::string &controlSet, const std::string &id) {
  const std::string name = OneKey(id);
  return PlainKeyName(name) ? controlSet + "\\Control\\CriticalDeviceDatabase\\" + name : std::string();
}

void PlanCriticalDevices(const BootRecord &record, const std::string &controlSet, RegistryEdits *edits) {
  if (record.service.empty()) return;  // Windows takes no entry without one for a driver
  for (const BootRecordId &id : record.ids) {
    const std::string key = CriticalDeviceKey(controlSet, id.id);
    if (key.empty()) continue;
    SetValue(edits, key, "ClassGUID", TextData(BracedGuid(record.classGuid)));
    SetValue(edits, key, "Service", TextData(record.service));
    ReplaceFilters(edits, key, record);
    DeleteValue(edits, key, "DriverPackageId");  // names the package of the driver that the entry had
  }
}

bool HasDriverDatabase(const RegistryEdits &edits) { return KeyExists(edits, kDriverDatabase); }

bool PlanBootRecord(const BootRecord &record, const std::string &controlSet, const std::string &windowsInf,
                    RegistryEdits *edits, std::string *publishedName, std::string *reason) {
  publishedName->clear();
  if (!HasDriverDatabase(*edits)) {
    PlanCriticalDevices(record, controlSet, edits);
    return true;
  }
  if (!PlainKeyName(SectionKey(record)) || KeyIds(record).empty()) {
    *reason = "The section or the ids of the package's line cannot stand in the restored system's driver database.";
    return false;
  }
  const std::string package = PackageName(record);
  if (!FindPublishedName(*edits, package, publishedName) && !TakePublishedName(windowsInf, edits, publishedName)) {
    publishedName->clear();
    *reason = "The restored system's driver database has no free name for the package.";
    return false;
  }
  PlanDatabaseRecord(record, package, *publishedName, edits);
  return true;
}

void PlanServiceStart(const std::string &service, RegistryEdits *edits) {
  if (!PlainKeyName(service)) return;
  for (const std::string &controlSet : ControlSets(*edits)) {
    const std::string key = controlSet + "\\Services\\" + service;
    DWORD start = 0;
    // A key may hold a foreign value alone: that is no service, and a start would make a broken one of it.
    if (ReadNumber(*edits, key, "Start", &start) && start != 0) SetValue(edits, key, "Start", NumberData(0));
    if (KeyExists(*edits, key + "\\StartOverride")) DeleteKey(edits, key + "\\StartOverride");
  }
}

bool HeldBack(const RegistryEdits &edits, const std::string &controlSet, const std::string &service) {
  const std::string key = controlSet + "\\Services\\" + service;
  DWORD start = 0;
  if (!PlainKeyName(service) || !ReadNumber(edits, key, "Start", &start)) return false;
  if (start != 0) return true;
  for (const std::string &name : ValueNames(edits, key + "\\StartOverride")) {
    if (ReadNumber(edits, key + "\\StartOverride", name, &start) && start != 0) return true;
  }
  return false;
}
