// The driver calls: a device's compatible drivers from one INF file or from a directory of them, best first.
#include <algorithm>
#include <tuple>

#include "platform/inf/inf_lines.h"
#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "platform/machine/base/report.h"
#include "platform/machine/description/current.h"
#include "platform/machine/setup/device_set.h"
#include "platform/machine/setup/driver_match.h"
#include "platform/machine/setup/driver_version.h"
#include "platform/machine/setup/inf_cache.h"
#include "platform/machine/setup/inf_handles.h"

namespace machine {
namespace {

struct RankedDriver {
  MatchRank rank;
  Driver driver;
};

// What all drivers of one file have in common.
Driver Template(InfFile *file, const InfFacts &facts, const std::string &path) {
  Driver driver;
  driver.infPath = path;
  driver.infDate = FileTimeOf(facts.status.st_mtim);
  const InfSection *version = FindSection(file, "Version");
  if (version == nullptr) return driver;
  FindValue(file, *version, "Provider", &driver.provider);
  const std::uint32_t index = FindKey(file, *version, "DriverVer");
  if (index == kInfNone) return driver;
  const InfLine &line = version->lines[index];
  if (HasField(line, 1)) driver.date = ParseDriverDate(FieldText(file, *version, line, 1));
  if (HasField(line, 2)) driver.version = ParseDriverVersion(FieldText(file, *version, line, 2));
  return driver;
}

// Adds the drivers that the file has for the device.
Status AddDrivers(const InfFactsRef &facts, const std::string &path, std::uint32_t device,
                  std::vector<RankedDriver> *drivers) {
  if (Status served = FindServed(facts, path.c_str()); !served) return served;
  if (!std::binary_search(facts->served->begin(), facts->served->end(), device)) return {};
  std::shared_ptr<InfFile> text;
  if (Status loaded = LoadInfText(facts, path.c_str(), &text); !loaded) return loaded;
  InfFile *file = text.get();
  const Description &machine = *Current();
  const DeviceIds deviceIds = IdsOf(machine.devices[device]);
  const Driver common = Template(file, *facts, path);
  ForEachModel(file, machine.system, [&](const ModelLine &line) {
    std::vector<std::string> ids = IdsOf(file, line);
    const MatchRank rank = RankOf(ids, deviceIds);
    if (!rank.Matches()) return;
    Driver driver = common;
    driver.description = FieldText(file, *line.models, *line.model, 0);
    driver.section = FieldText(file, *line.models, *line.model, 1);
    if (line.manufacturer->hasKey) {
      driver.manufacturer = FieldText(file, *line.manufacturers, *line.manufacturer, 0);
    }
    driver.ids = std::move(ids);
    drivers->push_back({rank, std::move(driver)});
  });
  return {};
}

Status AddDriversOfFile(const std::string &path, std::uint32_t device, std::vector<RankedDriver> *drivers) {
  InfFactsRef facts;
  if (Status found = FindInf(path.c_str(), &facts); !found) return found;
  return facts->modern ? AddDrivers(facts, path, device, drivers) : Status::Windows(ERROR_WRONG_INF_STYLE);
}

// A file that cannot be read is passed over, as one of many.
Status AddDriversOfDirectory(const std::string &directory, std::uint32_t device, std::vector<RankedDriver> *drivers) {
  std::vector<std::string> names;
  if (Status listed = ListInfFiles(directory.c_str(), &names); !listed) return listed;
  for (const std::string &name : names) (void)AddDriversOfFile(directory + "\\" + name, device, drivers);
  return {};
}

std::vector<Driver> InOrder(std::vector<RankedDriver> drivers) {
  std::stable_sort(drivers.begin(), drivers.end(), [](const RankedDriver &a, const RankedDriver &b) {
    const auto order = [](const RankedDriver &ranked) {
      // The later date and the higher version come first.
      return std::tuple(ranked.rank, ~TicksOf(ranked.driver.date), ~ranked.driver.version);
    };
    return order(a) < order(b);
  });
  std::vector<Driver> result;
  for (RankedDriver &ranked : drivers) result.push_back(std::move(ranked.driver));
  return result;
}

template <std::size_t kSize>
void FillText(const std::string &text, char (&field)[kSize]) {
  const std::size_t length = WholeCharacters(text, kSize - 1, CurrentInfSettings());
  std::memset(field, 0, kSize);
  std::memcpy(field, text.data(), length);
}

// The driver that a record names.
Status FindDriver(const NamedDevice &named, const SP_DRVINFO_DATA_A *record, const Driver **driver) {
  if (record == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  if (record->cbSize != sizeof *record) return Status::Windows(ERROR_INVALID_USER_BUFFER);
  const auto search = named.set->searches.find(named.device);
  if (search == named.set->searches.end() || record->Reserved >= search->second.drivers.size()) {
    return Status::Windows(ERROR_NO_DRIVER_SELECTED);
  }
  *driver = &search->second.drivers[record->Reserved];
  return {};
}

std::string IdList(const Driver &driver) {
  std::string list;
  for (const std::string &id : driver.ids) list += WithTerminator(id);
  return list + '\0';
}

void ReportChosen(const Driver &driver) {
  VXRMachine_Event event = {};
  event.kind = VXRMACHINE_DRIVER_CHOSEN;
  event.subject = driver.infPath.c_str();
  event.detail = driver.description.c_str();
  event.text = driver.ids.front().c_str();
  Report(event);
}

}  // namespace
}  // namespace machine

namespace platform {

using namespace machine;

BOOL SetupDiGetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  if (parameters == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (parameters->cbSize != sizeof *parameters) return FailWith(ERROR_INVALID_USER_BUFFER);
  const DriverSearch &search = named.set->searches[named.device];
  *parameters = {};
  parameters->cbSize = sizeof *parameters;
  parameters->Flags = search.flags;
  parameters->FlagsEx = search.flagsEx;
  FillText(search.driverPath, parameters->DriverPath);
  return TRUE;
}

BOOL SetupDiSetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  if (parameters == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (parameters->cbSize != sizeof *parameters) return FailWith(ERROR_INVALID_USER_BUFFER);
  const char *path = parameters->DriverPath;
  const void *end = std::memchr(path, '\0', sizeof parameters->DriverPath);
  if (end == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  DriverSearch &search = named.set->searches[named.device];
  search.flags = parameters->Flags;
  search.flagsEx = parameters->FlagsEx;
  search.driverPath = path;
  return TRUE;
}

// Without DI_ENUMSINGLEINF the driver path is a directory, and without one the machine's inf directory is searched.
// No driver at all is a success with an empty list.
BOOL SetupDiBuildDriverInfoList(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  if (driverType != SPDIT_COMPATDRIVER) return FailWith(ERROR_INVALID_PARAMETER);
  DriverSearch &search = named.set->searches[named.device];
  search.drivers.clear();
  std::vector<RankedDriver> drivers;
  const std::string &path = search.driverPath;
  const bool one = (search.flags & DI_ENUMSINGLEINF) != 0;
  if (one && path.empty()) return FailWith(ERROR_INVALID_PARAMETER);
  const Status read = one ? AddDriversOfFile(InfPathOf(path.c_str()), named.device, &drivers)
                          : AddDriversOfDirectory(path.empty() ? InfDirectory() : path, named.device, &drivers);
  if (!read) return FailWith(read);
  search.drivers = InOrder(std::move(drivers));
  return TRUE;
}

BOOL SetupDiEnumDriverInfoA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType, DWORD index,
                            SP_DRVINFO_DATA_A *driver) {
  VXR_FAULT(FALSE, ERROR_NO_MORE_ITEMS);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  if (driver == nullptr || driverType != SPDIT_COMPATDRIVER) return FailWith(ERROR_INVALID_PARAMETER);
  if (driver->cbSize != sizeof *driver) return FailWith(ERROR_INVALID_USER_BUFFER);
  const std::vector<Driver> &drivers = named.set->searches[named.device].drivers;
  if (index >= drivers.size()) return FailWith(ERROR_NO_MORE_ITEMS);
  const Driver &entry = drivers[index];
  driver->DriverType = driverType;
  driver->Reserved = index;
  FillText(entry.description, driver->Description);
  FillText(entry.manufacturer, driver->MfgName);
  FillText(entry.provider, driver->ProviderName);
  driver->DriverDate = entry.date;
  driver->DriverVersion = entry.version;
  return TRUE;
}

BOOL SetupDiGetDriverInfoDetailA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DRVINFO_DATA_A *driver,
                                 SP_DRVINFO_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  NamedDevice named;
  const Driver *entry = nullptr;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  if (const Status found = FindDriver(named, driver, &entry); !found) return FailWith(found);
  const std::string ids = IdList(*entry);
  constexpr std::size_t kFixed = offsetof(SP_DRVINFO_DETAIL_DATA_A, HardwareID);
  // The record's own size is the least, so that a caller may fill its size field in what it allocated.
  const std::size_t needed = std::max(kFixed + ids.size(), sizeof *detail);
  if (requiredSize != nullptr) *requiredSize = static_cast<DWORD>(needed);
  if (detail == nullptr) return size == 0 ? TRUE : FailWith(ERROR_INVALID_PARAMETER);
  if (size < needed) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  if (detail->cbSize != sizeof *detail) return FailWith(ERROR_INVALID_USER_BUFFER);
  detail->InfDate = entry->infDate;
  // An empty hardware id is there as an empty text: the offset is then 1, which says that there is none.
  detail->CompatIDsOffset = static_cast<DWORD>(entry->ids.front().size() + 1);
  detail->CompatIDsLength = entry->ids.size() > 1 ? static_cast<DWORD>(ids.size() - detail->CompatIDsOffset) : 0;
  detail->Reserved = 0;
  FillText(entry->section, detail->SectionName);
  FillText(entry->infPath, detail->InfFileName);
  FillText(entry->description, detail->DrvDescription);
  std::memcpy(reinterpret_cast<char *>(detail) + kFixed, ids.data(), ids.size());
  ReportChosen(*entry);
  return TRUE;
}

}  // namespace platform
