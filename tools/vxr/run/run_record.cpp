#include "tools/vxr/run/run_record.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/text/ansi_case.h"
#include "tools/vxr/base/machine_session.h"
#include "vxrcore/bmext.h"

namespace {

constexpr std::string_view kRestoredMount = "SYSTEM_ORG";
constexpr std::string_view kDriverSetUp = "Successful in driver files ";
constexpr std::string_view kUnloadError = "ERROR:VXREng_RunVXR:VXRReg_UnloadHive():failed";
constexpr std::string_view kScanError = "ERROR:VXRDev_ScanDiskDevices:";
// A model line that matched was given up, and with it what its install section had copied; or a directory was whose
// driver could not be registered.
constexpr std::string_view kRefusals[] = {"ERROR:VXRDev_ProcessModSect:",
                                          "ERROR:VXRDev_GetDriverInfDirs:VXRDev_PostGetDriver()"};

// What stands between a fixed beginning and a fixed end; nothing when the line has another form.
std::optional<std::string> Between(std::string_view line, std::string_view begin, std::string_view end) {
  if (line.size() < begin.size() + end.size()) return std::nullopt;
  if (line.substr(0, begin.size()) != begin || line.substr(line.size() - end.size()) != end) return std::nullopt;
  return std::string(line.substr(begin.size(), line.size() - begin.size() - end.size()));
}

// What follows `mark` in a line of the log, up to `end`.
std::optional<std::string> After(std::string_view line, std::string_view mark, std::string_view end) {
  const std::size_t at = line.find(mark);
  if (at == std::string_view::npos) return std::nullopt;
  line.remove_prefix(at + mark.size());
  const std::size_t stop = line.rfind(end);
  return std::string(line.substr(0, stop));
}

DeviceRecord *FindDevice(RunRecord *record, std::string_view instance) {
  for (DeviceRecord &device : record->devices) {
    if (device.instance == instance) return &device;
  }
  return nullptr;
}

// "Successfully processed INF for INSTANCE...": the device takes the driver that the machine chose last, unless it was
// told which file it came from.
void TakeDriver(RunRecord *record, std::string_view line) {
  const std::optional<std::string> taken = Between(line, "Successfully processed ", "...");
  if (!taken) return;
  for (DeviceRecord &device : record->devices) {
    if (!device.infFile.empty()) continue;
    const std::string tail = " for " + device.instance;
    if (taken->size() <= tail.size() || taken->compare(taken->size() - tail.size(), tail.size(), tail) != 0) continue;
    device.infFile = taken->substr(0, taken->size() - tail.size());
    device.driver = record->candidate.driver;
    device.hardwareId = record->candidate.hardwareId;
  }
}

bool SamePath(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return machine::UpperAscii(x) == machine::UpperAscii(y); });
}

// Two attempts are made at each file, and more where several ids or INF files name it; only what became of the file
// counts. What a device needs stays needed.
void AddCopy(RunRecord *record, CopyRecord copy) {
  std::vector<CopyRecord> &copies = record->copies;
  const auto known = std::find_if(copies.begin(), copies.end(),
                                  [&](const CopyRecord &other) { return SamePath(other.target, copy.target); });
  if (known != copies.end()) {
    if (known->use == CopyUse::kNeeded) copy.use = CopyUse::kNeeded;
    copies.erase(known);
  }
  copies.push_back(std::move(copy));
}

// A check of one id in one file, which looks at no device, copies nothing that could be left over.
void SettleCopies(RunRecord *record, CopyUse use) {
  if (record->devices.empty()) return;
  for (CopyRecord &copy : record->copies) {
    if (copy.use == CopyUse::kPending) copy.use = use;
  }
}

void AddWouldCopy(RunRecord *record, std::string_view line) {
  const std::optional<std::string> paths = Between(line, "Check only, bypassed copying ", "...");
  const std::size_t arrow = paths ? paths->find(" -> ") : std::string::npos;
  if (arrow == std::string::npos) return;
  CopyRecord copy;
  copy.source = paths->substr(0, arrow);
  copy.target = paths->substr(arrow + 4);
  AddCopy(record, std::move(copy));
}

bool IsValue(const FailedValue &failed, std::string_view key, std::string_view name) {
  return !failed.wholeKey && SamePath(failed.key, key) && SamePath(failed.name, name);
}

void AddValue(RunRecord *record, ValueRecord value) {
  std::vector<FailedValue> &failed = record->failedValues;
  failed.erase(std::remove_if(failed.begin(), failed.end(),
                              [&](const FailedValue &other) { return IsValue(other, value.key, value.name); }),
               failed.end());
  record->values.push_back(std::move(value));
}

void AddFailedValue(RunRecord *record, const VXRMachine_Event &event) {
  FailedValue value;
  value.key = MachineText(event.subject);
  value.name = MachineText(event.detail);
  value.wholeKey = event.detail == nullptr;
  value.reason = MachineText(event.text);
  value.type = event.type;
  value.error = static_cast<std::uint32_t>(event.size);
  const auto same = [&](const FailedValue &other) {
    return value.wholeKey ? other.wholeKey && SamePath(other.key, value.key) : IsValue(other, value.key, value.name);
  };
  std::vector<FailedValue> &failed = record->failedValues;
  if (std::none_of(failed.begin(), failed.end(), same)) failed.push_back(std::move(value));
}

bool IsRestoredKey(const std::string &key) { return key.compare(0, kRestoredMount.size(), kRestoredMount) == 0; }

// The job's own HardwareID, not the computer's; without one the job is the usual kind.
bool TellsNamedIdUnread(std::string_view text) {
  return text.find("\\Relmar\\") != std::string_view::npos && text.find("\\HardwareID) failed") != text.npos &&
         text.find("rc=2 ") == text.npos;
}

HiveRecord *FindHive(RunRecord *record, const std::string &file) {
  const auto known = std::find_if(record->hives.begin(), record->hives.end(),
                                  [&](const HiveRecord &hive) { return hive.file == file; });
  return known == record->hives.end() ? nullptr : &*known;
}

void AddReplay(RunRecord *record, const VXRMachine_Event &event) {
  HiveRecord hive;
  hive.file = MachineText(event.subject);
  hive.replay = MachineText(event.detail);
  if (HiveRecord *known = FindHive(record, hive.file)) {
    known->replay = hive.replay;
  } else {
    record->hives.push_back(std::move(hive));
  }
}

void AddHive(RunRecord *record, const VXRMachine_Event &event) {
  HiveRecord hive;
  hive.file = MachineText(event.subject);
  switch (event.kind) {
    case VXRMACHINE_HIVE_LOADED:
      hive.mountPoint = MachineText(event.detail);
      break;
    case VXRMACHINE_HIVE_SAVED:
      hive.outcome = HiveOutcome::kSaved;
      hive.size = event.size;
      break;
    default:
      hive.outcome = event.kind == VXRMACHINE_HIVE_REFUSED ? HiveOutcome::kRefused : HiveOutcome::kNotSaved;
      hive.reason = MachineText(event.detail);
      hive.size = event.size;
      if (hive.size != 0) hive.outcome = HiveOutcome::kUnflushed;
      break;
  }
  HiveRecord *known = FindHive(record, hive.file);
  if (known == nullptr) {
    record->hives.push_back(std::move(hive));
    return;
  }
  hive.mountPoint = known->mountPoint;
  hive.replay = known->replay;
  *known = std::move(hive);
}

// A hive that could not be unmounted is dropped when the machine closes, and what was set in it is lost.
void DropMounted(RunRecord *record) {
  if (std::none_of(record->values.begin(), record->values.end(), [](const auto &v) { return InRestoredHive(v); })) {
    return;
  }
  for (HiveRecord &hive : record->hives) {
    if (hive.outcome != HiveOutcome::kMounted) continue;
    hive.outcome = HiveOutcome::kNotSaved;
    hive.reason = "it could not be unmounted";
  }
}

// The log's own lines tell where it goes and, before a failing status line, what went wrong.
void AddDebugText(RunRecord *record, const char *raw) {
  std::string text = MachineText(raw);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.compare(0, 6, "ERROR:") == 0) {
    // A job without HardwareID is the usual one, and so is a key that is made.
    const bool usual = text.find("\\HardwareID) failed") != std::string::npos ||
                       text.find(") failed!create it...") != std::string::npos;
    if (record->firstError.empty() && !usual) record->firstError = text;
    if (TellsNamedIdUnread(text)) record->namedIdProblem = text;
    for (const std::string_view refusal : kRefusals) {
      if (text.compare(0, refusal.size(), refusal) == 0) SettleCopies(record, CopyUse::kLeftOver);
    }
    if (text.compare(0, kUnloadError.size(), kUnloadError) == 0) DropMounted(record);
    if (text.compare(0, kScanError.size(), kScanError) == 0 && record->devices.empty()) {
      record->scanProblem = record->firstError;
    }
  } else if (const auto file = After(text, ":VXRDbg_Initialize:start logging to ", "...")) {
    const std::size_t colon = file->find(':');  // the stream's address stands before the path
    record->logFile = colon == std::string::npos ? *file : file->substr(colon + 1);
    record->logProblem.clear();
  } else if (const auto problem = After(text, ":VXRDbg_Initialize:CreateFile(", "\n")) {
    record->logProblem = "CreateFile(" + *problem;
  }
}

// --- The search for drivers -----------------------------------------------------------------------------------------

DeviceRecord *CurrentDevice(RunRecord *record) { return record->devices.empty() ? nullptr : &record->devices.back(); }

// The attempt at the INF file that was tried is over: of all attempts at it the one that got furthest is kept.
void EndAttempt(RunRecord *record) {
  DeviceRecord *device = CurrentDevice(record);
  if (device != nullptr && !record->triedInf.empty()) {
    Refusal &kept = device->refusals[record->triedInf];
    if (record->tried.reason > kept.reason) kept = std::move(record->tried);
  }
  record->triedInf.clear();
  record->tried = {};
}

void AddDevice(RunRecord *record, const std::string &instance) {
  EndAttempt(record);
  const DeviceRecord *last = CurrentDevice(record);
  if (last != nullptr && last->instance == instance) return;  // its status line came first
  record->devices.emplace_back();
  record->devices.back().instance = instance;
}

void AddRefusal(RunRecord *record, const VXRMachine_Event &event) {
  Refusal &tried = record->tried;
  if (event.type == VXRMACHINE_REFUSED_RESTORED_SYSTEM && tried.reason > event.type) return;
  tried.reason = event.type;
  tried.detail = MachineText(event.detail);
}

// The driver is that of the file that was tried last, whatever file its list of drivers was built from.
void AddDriver(RunRecord *record, const VXRMachine_Event &event) {
  record->candidate = {};
  record->candidate.infFile = record->triedInf;
  record->candidate.driver = MachineText(event.subject);
  record->candidate.hardwareId = MachineText(event.detail);
  record->tried.reason = 0;  // the attempt goes on: the driver may yet fail to be registered
  record->tried.detail.clear();
  DeviceRecord *device = CurrentDevice(record);
  if (device == nullptr) return;
  device->infFile = record->candidate.infFile;
  device->driver = record->candidate.driver;
  device->hardwareId = record->candidate.hardwareId;
}

void FailDevice(RunRecord *record, const char *rawInstance) {
  EndAttempt(record);
  const bool known = rawInstance != nullptr;
  DeviceRecord *device = known ? FindDevice(record, MachineText(rawInstance)) : CurrentDevice(record);
  if (device == nullptr) return;
  if (!known) {
    record->noController = true;
    record->problems.push_back(device->instance +
                               ": no controller stands above it in the device tree (it has no parent), and none got a "
                               "driver: give the device its parent");
    return;
  }
  device->failed = true;
  device->unsearched = device->directories.empty() && device->refusals.empty();
  device->infFile.clear();
}

void AddOnce(std::vector<std::string> *list, const std::string &text) {
  if (std::find(list->begin(), list->end(), text) == list->end()) list->push_back(text);
}

const char *DeviceClass(std::uint32_t deviceType) {
  return deviceType == VXR_DEVTYPE_DISKDRIVE ? "DiskDrive" : deviceType == VXR_DEVTYPE_HDC ? "hdc" : "SCSIAdapter";
}

// False for another event.
bool AddSearchEvent(RunRecord *record, const VXRMachine_Event &event) {
  DeviceRecord *device = CurrentDevice(record);
  const std::string subject = MachineText(event.subject);
  switch (event.kind) {
    case VXRMACHINE_DEVICE_CHECKED:
      AddDevice(record, subject);
      return true;
    case VXRMACHINE_DEVICE_ID:
      if (device != nullptr) device->ids.push_back(subject);
      return true;
    case VXRMACHINE_DEVICE_TARGET:
      if (device != nullptr) device->targets.push_back(subject);
      return true;
    case VXRMACHINE_DIRECTORY_SEARCHED:
      EndAttempt(record);
      if (device != nullptr) AddOnce(&device->directories, subject);
      return true;
    case VXRMACHINE_INF_TRIED:
      EndAttempt(record);
      record->triedInf = subject;
      record->tried = {MachineText(event.detail), 0, ""};
      return true;
    case VXRMACHINE_INF_REFUSED:
      AddRefusal(record, event);
      return true;
    case VXRMACHINE_DRIVER_TAKEN:
      AddDriver(record, event);
      return true;
    case VXRMACHINE_DEVICE_FAILED:
      FailDevice(record, event.subject);
      return true;
    case VXRMACHINE_DISK_ALONE:
      record->noController = true;
      record->problems.push_back(subject +
                                 ": is on neither an IDE nor a SCSI bus, so that no controller was looked for above it "
                                 "and none got a driver: describe the disk as its controller's driver shows it to the "
                                 "restored system (SCSI\\Disk...)");
      return true;
    case VXRMACHINE_DEVICE_OF_OTHER_CLASS:
      record->problems.push_back(subject + ": is not of the class " + DeviceClass(event.type) +
                                 ", in which it was looked for by the bus of the disk, so that no INF file was looked "
                                 "for: correct the device's class");
      return true;
    default:
      return false;
  }
}

}  // namespace

const StatusLine &AddStatusLine(RunRecord *record, const char *text) {
  StatusLine line{MachineText(text), VXR_STATUS_PROGRESS, ""};
  while (!line.text.empty() && (line.text.back() == '\n' || line.text.back() == '\r')) line.text.pop_back();
  if (const ResultCode *failure = FailureOfStatusLine(line.text)) {
    line.code = failure->code;
    const bool told =
        failure->code == VXR_RESULT_NO_HIVE && !record->hives.empty();  // the machine gives a better reason
    if (failure->causeInLog && !told) line.cause = record->firstError;
  }
  if (const auto checked = Between(line.text, "Checking device with id ", "...")) {
    AddDevice(record, *checked);
  }
  if (const auto failed = Between(line.text, "Failed to locate driver files for device ", "")) {
    if (DeviceRecord *device = FindDevice(record, *failed)) device->failed = true;
    SettleCopies(record, CopyUse::kLeftOver);
  }
  if (line.text.compare(0, kDriverSetUp.size(), kDriverSetUp) == 0) SettleCopies(record, CopyUse::kNeeded);
  TakeDriver(record, line.text);
  AddWouldCopy(record, line.text);
  record->firstError.clear();
  record->lines.push_back(std::move(line));
  return record->lines.back();
}

void AddEvent(RunRecord *record, const VXRMachine_Event &event) {
  if (AddSearchEvent(record, event)) return;
  switch (event.kind) {
    case VXRMACHINE_FILE_COPIED:
      AddCopy(record, {MachineText(event.detail), MachineText(event.subject), event.size, true, "", false, {}});
      break;
    case VXRMACHINE_FILE_NOT_COPIED:
      AddCopy(record, {"", MachineText(event.subject), {}, false, MachineText(event.detail), event.size != 0, {}});
      break;
    case VXRMACHINE_VALUE_WRITTEN:
      AddValue(record, {MachineText(event.subject), MachineText(event.detail), MachineText(event.text), event.type,
                        event.size});
      break;
    case VXRMACHINE_VALUE_NOT_WRITTEN:
      AddFailedValue(record, event);
      break;
    case VXRMACHINE_HIVE_LOADED:
    case VXRMACHINE_HIVE_REFUSED:
    case VXRMACHINE_HIVE_SAVED:
    case VXRMACHINE_HIVE_NOT_SAVED:
      AddHive(record, event);
      break;
    case VXRMACHINE_HIVE_REPLAYED:
      AddReplay(record, event);
      break;
    case VXRMACHINE_DRIVER_CHOSEN:
      record->candidate = {};
      record->candidate.infFile = MachineText(event.subject);
      record->candidate.driver = MachineText(event.detail);
      record->candidate.hardwareId = MachineText(event.text);
      break;
    case VXRMACHINE_DEBUG_TEXT:
      AddDebugText(record, event.text);
      break;
    case VXRMACHINE_PATH_REFUSED:
      record->refusedPaths.push_back({MachineText(event.subject), MachineText(event.detail)});
      break;
    default:
      break;
  }
}

std::string AdviceFor(std::uint32_t code, const RunRecord &record) {
  const bool explained = std::any_of(record.devices.begin(), record.devices.end(),
                                     [](const DeviceRecord &device) { return !device.candidates.empty(); });
  if (explained && (code == VXR_RESULT_NO_DRIVER || code == VXR_RESULT_NO_NAMED_DRIVER)) {
    return "Mend what is said above of an INF file that lists the device, or add one that fits.";
  }
  if (code == VXR_RESULT_NO_DRIVER && std::any_of(record.devices.begin(), record.devices.end(),
                                                  [](const DeviceRecord &device) { return device.unsearched; })) {
    return "No INF file was looked for: mend what stands under Problems, or see the log.";
  }
  // The problems say what to do.
  if (code == VXR_RESULT_NO_DRIVER && (record.noController || record.badDirectory)) return "";
  if (code == VXR_RESULT_CANCELLED && record.badDirectory) return "";
  return FindResultCode(code).advice;
}

const HiveRecord *UnsavedRestoredHive(const RunRecord &record) {
  for (const HiveRecord &hive : record.hives) {
    const bool failed = hive.outcome == HiveOutcome::kNotSaved || hive.outcome == HiveOutcome::kUnflushed;
    if (failed && !hive.mountPoint.empty()) return &hive;
  }
  return nullptr;
}

std::size_t LostRestoredValues(const RunRecord &record) {
  return static_cast<std::size_t>(std::count_if(record.failedValues.begin(), record.failedValues.end(),
                                                [](const FailedValue &value) { return InRestoredHive(value); }));
}

bool HasProblems(const RunRecord &record) {
  return std::any_of(record.lines.begin(), record.lines.end(),
                     [](const auto &l) { return l.code != VXR_STATUS_PROGRESS; }) ||
         std::any_of(record.copies.begin(), record.copies.end(), [](const auto &c) { return !c.reason.empty(); }) ||
         std::any_of(record.hives.begin(), record.hives.end(), [](const auto &h) { return !h.reason.empty(); }) ||
         !record.failedValues.empty() || !record.namedIdProblem.empty() || !record.refusedPaths.empty() ||
         !record.contradictions.empty() || !record.problems.empty() || !record.scanProblem.empty();
}

bool InRestoredHive(const ValueRecord &value) { return IsRestoredKey(value.key); }

bool InRestoredHive(const FailedValue &value) { return IsRestoredKey(value.key); }

std::vector<ValueRecord> RestoredValues(const RunRecord &record) {
  std::vector<ValueRecord> values;
  const auto restored = [](const ValueRecord &value) { return InRestoredHive(value); };
  std::copy_if(record.values.begin(), record.values.end(), std::back_inserter(values), restored);
  return values;
}
