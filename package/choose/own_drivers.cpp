#include "package/choose/own_drivers.h"

#include <algorithm>

#include "package/read/driver_store.h"
#include "package/read/reading.h"
#include "platform/inf/inf_file.h"
#include "registry/boot_record.h"

namespace package {
namespace {

constexpr std::size_t kListedMax = 1024;  // drivers of one device that are weighed; real systems have a few
constexpr std::size_t kFiltersMax = 16;

struct Search {
  const RegistryEdits &edits;
  const std::string &controlSet;
  const DeviceIds &device;
  const Target &target;
  const RestoredPlaces &places;
  std::vector<std::string> *passedOver;  // may be null
};

// An INF file that the database lists for an id of the device.
struct Listed {
  Rank rank;
  std::string id, package;
};

std::vector<std::string> AllIds(const DeviceIds &device) {
  std::vector<std::string> ids;
  for (const std::vector<std::string> *list : {&device.hardware, &device.compatible}) {
    for (const std::string &id : *list) {
      if (PlainKeyPath(id) && !Lists(ids, id)) ids.push_back(id);
    }
  }
  return ids;
}

std::vector<std::string> ReadList(const RegistryEdits &edits, const std::string &key, const char *name) {
  RegistryData data;
  if (!ReadValue(edits, key, name, &data) || data.type != REG_MULTI_SZ) return {};
  return ListTexts(data);
}

bool FindService(const Search &search, const std::string &name, const std::string &package, OwnService *own) {
  if (FindOwnService(search.edits, search.controlSet, name, package, search.places, search.target, own)) return true;
  const std::string sentence = "A driver that the restored system has for the device is passed over, since its " +
                               name + " " + own->missing + ".";
  if (search.passedOver != nullptr && !Lists(*search.passedOver, sentence)) search.passedOver->push_back(sentence);
  return false;
}

// The filters of an entry and its service, with what they need.
bool FindServices(const Search &search, const std::string &key, const std::string &service, const std::string &package,
                  OwnDriver *driver) {
  OwnService own;
  if (!FindService(search, service, package, &own)) return false;
  driver->service = own.name;
  driver->binary = own.binary;
  driver->storedBinary = own.storedBinary;
  driver->heldBack = own.heldBack;
  for (const char *list : {"UpperFilters", "LowerFilters"}) {
    for (const std::string &filter : ReadList(search.edits, key, list)) {
      // A device does not start without one of its filters. Some name their own service beside.
      if (machine::SameName(filter, service)) continue;
      if (driver->filters.size() == kFiltersMax || !FindService(search, filter, package, &own)) return false;
      driver->heldBack = driver->heldBack || own.heldBack;
      driver->filters.push_back(own);
    }
  }
  return true;
}

DWORD64 NumberAt(const std::string &bytes, std::size_t at, std::size_t size) {
  DWORD64 number = 0;
  for (std::size_t i = 0; i < size; ++i) number |= DWORD64{static_cast<unsigned char>(bytes[at + i])} << 8 * i;
  return number;
}

// The position on its line of an id, and the feature score, as its bytes tell: 1 for a hardware id, 2 (and a rare 3)
// for a compatible one, the score, which of the compatible ones.
bool IdRank(const Search &search, const std::string &id, const RegistryData &data, DWORD *rank) {
  constexpr std::size_t kSize = 4;
  if (data.type != REG_BINARY || data.bytes.size() < kSize) return false;
  const DWORD64 kind = NumberAt(data.bytes, 0, 1);
  if (kind == 0) return false;
  const std::size_t position = kind == 1 ? 0 : 1 + NumberAt(data.bytes, 2, 2);
  const DWORD score = IdentifierScore(search.device, id, position);
  if (score == kNoMatch) return false;
  *rank = RankValue(score, static_cast<DWORD>(NumberAt(data.bytes, 1, 1)), search.target);
  return true;
}

// The package in force of an INF file in the database, and its date and version.
bool ReadPackage(const RegistryEdits &edits, Listed *listed) {
  constexpr std::size_t kDateAt = 24, kVersionAt = 32, kEnd = 40;
  if (!ReadText(edits, kDatabaseInfFiles + listed->rank.path, "Active", &listed->package) ||
      !PlainKeyName(listed->package)) {
    return false;
  }
  RegistryData version;
  if (ReadValue(edits, kDatabasePackages + listed->package, "Version", &version) && version.type == REG_BINARY &&
      version.bytes.size() >= kEnd) {
    listed->rank.date = NumberAt(version.bytes, kDateAt, sizeof(DWORD64));
    listed->rank.version = NumberAt(version.bytes, kVersionAt, sizeof(DWORD64));
  }
  return true;
}

std::vector<Listed> ListDrivers(const Search &search) {
  std::vector<Listed> drivers;
  for (const std::string &id : AllIds(search.device)) {
    const std::string key = kDatabaseDeviceIds + id;
    for (const std::string &inf : ValueNames(search.edits, key)) {
      if (drivers.size() == kListedMax) return drivers;
      Listed listed = {{.path = inf}, id, {}};
      RegistryData data;
      if (PlainKeyName(inf) && ReadValue(search.edits, key, inf, &data) &&
          IdRank(search, id, data, &listed.rank.value) && ReadPackage(search.edits, &listed)) {
        drivers.push_back(std::move(listed));
      }
    }
  }
  return drivers;
}

bool Excluded(const Search &search, const std::string &configuration) {
  const std::vector<std::string> excluded = ReadList(search.edits, configuration, "ExcludeIds");
  return std::any_of(excluded.begin(), excluded.end(), [&](const std::string &id) { return HasId(search.device, id); });
}

// A configuration is there for packages that can be installed, not for those that are only staged; one without a
// service, or with an empty one, is of a device that needs none.
bool TakeListed(const Search &search, const Listed &listed, OwnDriver *driver) {
  const std::string package = kDatabasePackages + listed.package;
  std::string configuration;
  if (!ReadText(search.edits, package + "\\Descriptors\\" + listed.id, "Configuration", &configuration) ||
      !PlainKeyName(configuration)) {
    return false;
  }
  const std::string key = package + "\\Configurations\\" + configuration;
  if (!KeyExists(search.edits, key) || Excluded(search, key)) return false;
  *driver = {};
  driver->rank = listed.rank;
  driver->id = listed.id;
  RegistryData data;
  if (!ReadValue(search.edits, key, "Service", &data)) return true;
  std::string service;
  if (!ReadText(search.edits, key, "Service", &service)) return false;
  return service.empty() || FindServices(search, key, service, listed.package, driver);
}

// Date and version of a package, from its INF file in the driver store or else in the inf directory.
void ReadInfVersion(const Search &search, const std::string &package, Rank *rank) {
  const std::string inf = InfNameOf(package);
  if (inf.empty()) return;
  InfSource source;
  std::string reason;
  const std::string stored = FileRepository(search.places.system) + "\\" + package + "\\" + inf;
  const auto settings = SettingsFor(search.target);
  FoundLine version;
  if ((ReadInfSource(stored, settings, &source, &reason) ||
       ReadInfSource(search.places.inf + "\\" + inf, settings, &source, &reason)) &&
      FindLine(source.file.get(), "Version", "DriverVer", &version)) {
    rank->date = ParseDriverDate(TextOf(version, 1));
    rank->version = ParseDriverVersion(TextOf(version, 2));
  }
}

// An entry of the critical-device database; one without a service is no driver. Each is of an id that its line lists.
bool TakeCritical(const Search &search, const std::string &id, OwnDriver *driver) {
  const std::string key = CriticalDeviceKey(search.controlSet, id);
  std::string service, package;
  if (key.empty() || !ReadText(search.edits, key, "Service", &service) || service.empty()) return false;
  ReadText(search.edits, key, "DriverPackageId", &package);
  *driver = {};
  driver->id = id;
  driver->rank.value = RankValue(IdentifierScore(search.device, id, 0), kDefaultFeatureScore, search.target);
  if (!FindServices(search, key, service, package, driver)) return false;
  ReadInfVersion(search, package, &driver->rank);
  return true;
}

}  // namespace

bool FindOwnDriver(const RegistryEdits &edits, const std::string &controlSet, const DeviceIds &device,
                   const Target &target, const RestoredPlaces &places, OwnDriver *driver,
                   std::vector<std::string> *passedOver) {
  const Search search = {edits, controlSet, device, target, places, passedOver};
  if (!HasDriverDatabase(edits)) {
    const std::vector<std::string> ids = AllIds(device);
    return std::any_of(ids.begin(), ids.end(), [&](const std::string &id) { return TakeCritical(search, id, driver); });
  }
  std::vector<Listed> drivers = ListDrivers(search);
  std::stable_sort(drivers.begin(), drivers.end(),
                   [](const Listed &a, const Listed &b) { return Better(a.rank, b.rank); });
  return std::any_of(drivers.begin(), drivers.end(),
                     [&](const Listed &listed) { return TakeListed(search, listed, driver); });
}

bool Beats(const Candidate &candidate, const OwnDriver &own) {
  const Rank &rank = candidate.rank;
  return rank.value != own.rank.value ? rank.value < own.rank.value : !candidate.inbox && rank.date > own.rank.date;
}

}  // namespace package
