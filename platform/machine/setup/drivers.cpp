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

// Adds the drivers that the file has for the device. False with the last error set when it cannot be read.
bool AddDrivers(const InfFactsRef &facts, const std::string &path, std::uint32_t device,
                std::vector<RankedDriver> *drivers) {
  const std::vector<std::uint32_t> *served = ServedBy(facts, path.c_str());
  if (served == nullptr) return false;
  if (!std::binary_search(served->begin(), served->end(), device)) return true;
  const std::shared_ptr<InfFile> text = LoadInfText(facts, path.c_str());
  if (text == nullptr) return false;
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
  return true;
}

bool AddDriversOfFile(const std::string &path, std::uint32_t device, std::vector<RankedDriver> *drivers) {
  const InfFactsRef facts = FindInf(path.c_str());
  if (facts == nullptr) return false;
  return facts->modern ? AddDrivers(facts, path, device, drivers) : FailWith(ERROR_WRONG_INF_STYLE);
}

// A file that cannot be read is passed over, as one of many.
bool AddDriversOfDirectory(const std::string &directory, std::uint32_t device, std::vector<RankedDriver> *drivers) {
  std::vector<std::string> names;
  if (!ListInfFiles(directory.c_str(), &names)) return false;
  for (const std::string &name : names) AddDriversOfFile(directory + "\\" + name, device, drivers);
  return true;
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

// The driver that a record names. Null with the last error set.
const Driver *FindDriver(const DeviceSet &set, std::uint32_t device, const SP_DRVINFO_DATA_A *record) {
  DWORD error = NO_ERROR;
  const auto search = set.searches.find(device);
  if (record == nullptr) {
    error = ERROR_INVALID_PARAMETER;
  } else if (record->cbSize != sizeof *record) {
    error = ERROR_INVALID_USER_BUFFER;
  } else if (search == set.searches.end() || record->Reserved >= search->second.drivers.size()) {
    error = ERROR_NO_DRIVER_SELECTED;
  } else {
    return &search->second.drivers[record->Reserved];
  }
  platform::SetLastError(error);
  return nullptr;
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
  std::uint32_t number = 0;
  DeviceSet *found = FindSetOf(set, device, &number);
  if (found == nullptr) return FALSE;
  if (parameters == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (parameters->cbSize != sizeof *parameters) return FailWith(ERROR_INVALID_USER_BUFFER);
  const DriverSearch &search = found->searches[number];
  *parameters = {};
  parameters->cbSize = sizeof *parameters;
  parameters->Flags = search.flags;
  parameters->FlagsEx = search.flagsEx;
  FillText(search.driverPath, parameters->DriverPath);
  return TRUE;
}

BOOL SetupDiSetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  std::uint32_t number = 0;
  DeviceSet *found = FindSetOf(set, device, &number);
  if (found == nullptr) return FALSE;
  if (parameters == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (parameters->cbSize != sizeof *parameters) return FailWith(ERROR_INVALID_USER_BUFFER);
  const char *path = parameters->DriverPath;
  const void *end = std::memchr(path, '\0', sizeof parameters->DriverPath);
  if (end == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  DriverSearch &search = found->searches[number];
  search.flags = parameters->Flags;
  search.flagsEx = parameters->FlagsEx;
  search.driverPath = path;
  return TRUE;
}

// Without DI_ENUMSINGLEINF the driver path is a directory, and without one the machine's inf directory is searched.
// No driver at all is a success with an empty list.
BOOL SetupDiBuildDriverInfoList(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  std::uint32_t number = 0;
  DeviceSet *found = FindSetOf(set, device, &number);
  if (found == nullptr) return FALSE;
  if (driverType != SPDIT_COMPATDRIVER) return FailWith(ERROR_INVALID_PARAMETER);
  DriverSearch &search = found->searches[number];
  search.drivers.clear();
  std::vector<RankedDriver> drivers;
  const std::string &path = search.driverPath;
  const bool one = (search.flags & DI_ENUMSINGLEINF) != 0;
  if (one && path.empty()) return FailWith(ERROR_INVALID_PARAMETER);
  const bool read = one ? AddDriversOfFile(InfPathOf(path.c_str()), number, &drivers)
                        : AddDriversOfDirectory(path.empty() ? InfDirectory() : path, number, &drivers);
  if (!read) return FALSE;
  search.drivers = InOrder(std::move(drivers));
  return TRUE;
}

BOOL SetupDiEnumDriverInfoA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType, DWORD index,
                            SP_DRVINFO_DATA_A *driver) {
  VXR_FAULT(FALSE, ERROR_NO_MORE_ITEMS);
  std::uint32_t number = 0;
  DeviceSet *found = FindSetOf(set, device, &number);
  if (found == nullptr) return FALSE;
  if (driver == nullptr || driverType != SPDIT_COMPATDRIVER) return FailWith(ERROR_INVALID_PARAMETER);
  if (driver->cbSize != sizeof *driver) return FailWith(ERROR_INVALID_USER_BUFFER);
  const std::vector<Driver> &drivers = found->searches[number].drivers;
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
  std::uint32_t number = 0;
  const DeviceSet *found = FindSetOf(set, device, &number);
  const Driver *entry = found != nullptr ? FindDriver(*found, number, driver) : nullptr;
  if (entry == nullptr) return FALSE;
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
